// The list of attributes in a reply: (ClientName=...),(IPAddress=...),(EventPort=...), these three
// in this order.  A backslash in a value takes the byte after it as it is.
#pragma once

#include <string>

#include "scanner/attribute_message.h"

namespace zvqrn::scanner {

// Reads the list.  Gives an empty text and the PC, otherwise what is wrong (escaped).
std::string ReadAttributes(const std::string& list, PcDescription* pc);

}  // namespace zvqrn::scanner
