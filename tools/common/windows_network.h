// The Windows headers that the rooms beside it need, in the one order that works: sockets first.
// Included under Windows only.
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
#include <iphlpapi.h>
#include <windows.h>
