// A PC that gets its address late: a service that was started without one waits for it.
#pragma once

#include <cstdint>

namespace zvqrn::test {

// About how long it takes from GiveAddress until the library's watcher looks at the address.
constexpr std::int32_t ADDRESS_NOTICE_MS = 50;

// Leaves the PC its loopback address only, as far as the library can tell; after it was loaded.
void TakeAddress();

// Gives the PC its address and has the system tell of it.
void GiveAddress();

// How often the library has ended its use of the socket library since TakeAddress, where that can
// be seen.
std::int32_t SocketUsesEnded();

}  // namespace zvqrn::test
