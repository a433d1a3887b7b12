// The file that doctor writes for a ticket: all that it has found out, in one text.
#pragma once

#include <string>

#include "scanner/doctor/checks.h"

namespace zvqrn::scanner {

// Throws a Failure when the file cannot be written, before there is anything to write.
void CheckTicket(const std::string& path);

// Writes the file; throws a Failure when it cannot be written.
void WriteTicket(const std::string& path, const Account& account, const Patient& patient);

}  // namespace zvqrn::scanner
