// What quorin-scanner prints, as prose or as one JSON object a line.  Texts from the network are
// escaped here.
#pragma once

#include <string>

#include "scanner/wire/exchange.h"

namespace zvqrn::scanner {

// An answer, with the meaning of its codes; `exchange` says to what ("single", "start", ...).
void PrintAnswer(bool json, const std::string& exchange, const Answer& answer);

// The `number`-th piece of data; `file` is where it was saved, empty when it is to be printed.
void PrintData(bool json, int number, const HostData& data, const std::string& file);

}  // namespace zvqrn::scanner
