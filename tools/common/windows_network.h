// The Windows headers of the rooms that look at adapters and ports.  Included under Windows only.
#pragma once

#include "platform/windows/windows_headers.h"
// After the header above, which brings the sockets first.
#include <iphlpapi.h>
