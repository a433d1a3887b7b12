// The list of attributes in a reply: (ClientName=...),(IPAddress=...),(EventPort=...), these three
// in this order.  A backslash in a value takes the byte after it as it is.
#pragma once

#include <cstdint>
#include <string>

namespace zvqrn::scanner {

// What a PC says of itself.
struct PcDescription {
  std::string name;     // UTF-8, without the escapes of the attribute list
  std::string address;  // dotted IPv4 text
  std::uint16_t eventPort = 0;
};

// Reads the list.  Gives an empty text and the PC, otherwise what is wrong (escaped).
std::string ReadAttributes(const std::string& list, PcDescription* pc);

}  // namespace zvqrn::scanner
