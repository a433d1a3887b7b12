// Who this PC is on the network: its name and its IPv4 address.
#pragma once

#include <cstdint>

namespace zvqrn {

// Reads the computer's name.  With a null buffer only its length (bytes, without NUL) is stored in
// `length`; otherwise `*length` says how large the buffer is, which receives the name and a NUL.
// 1 = done; 0 = a null `length`, no name to be had, or no room for the NUL.
std::int32_t ReadComputerName(char* buffer, std::int32_t* length);

enum PickResult : std::int32_t {
  PICK_FAILED = 0,           // no host name (the address stays as it was) or no address
  PICK_USABLE = 1,           // localAddress is set
  PICK_ONLY_LOOPBACK = 769,  // localAddress is 0, and the host has been told
  PICK_UNREADABLE = -1       // the system cannot say just now; the address stays as it was
};

// Chooses service.localAddress; the caller holds identityLock.  Tells the host when there is no
// usable address, and, while the service runs, that it goes on with the address found.
PickResult PickLocalAddress();

// Whether the PC's address is still the one in service.localAddress; changes nothing and tells
// nobody.  Takes identityLock.
enum AddressCheck : std::int32_t {
  ADDRESS_SAME,  // also when there is no telling, now or later
  ADDRESS_DIFFERS,
  ADDRESS_UNKNOWN  // the system cannot say just now
};
AddressCheck CheckLocalAddress();

}  // namespace zvqrn
