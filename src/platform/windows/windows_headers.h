// The system's headers, in the one order that works: sockets before windows.h, lean, and without
// the min and max macros.  The files of this folder include it, after the neutral headers, and so
// does tools/common/windows_network.h; nobody else.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif

#include <winsock2.h>
#include <ws2tcpip.h>
// After winsock2.h, which refuses to come second.
#include <windows.h>
