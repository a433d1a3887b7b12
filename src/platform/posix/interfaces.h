// The machine's network interfaces, for the files of this folder.
#pragma once

#include <cstdint>

#include "platform/system.h"

namespace zvqrn::platform {

// The interface through which the machine is reached, and its IPv4 address.
struct OwnInterface {
  std::uint32_t index;    // the kernel's number
  std::uint32_t address;  // network byte order
};

// Finds it: the interface of the default route first, then any that is up, loopback only when
// there is nothing else.  `own` is all zero when there is none, and when the system cannot say.
HostAddressResult FindOwnInterface(OwnInterface* own);

}  // namespace zvqrn::platform
