// A whole examination: of the PC on which this program runs, or of what a scanner sees of another.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "scanner/command/exit_code.h"
#include "scanner/doctor/checks.h"

namespace zvqrn::scanner {

struct Examination {
  ServiceChecks checks;
  std::vector<std::string> products;
  std::uint32_t scanner = 0;  // the address of a scanner that is to reach the PC; 0: none
  bool local = false;         // nothing leaves this PC
};

// Examines this PC; gives the exit code of doctor.
ExitCode Examine(const Examination& examination, Account* account, Patient* patient);

// Examines another PC, which has answered a search from this address with this event port.
void ExamineOther(const Examination& examination, std::uint32_t address, std::uint16_t eventPort,
                  Account* account);

}  // namespace zvqrn::scanner
