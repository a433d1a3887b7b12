#include "scanner/command/exit_code.h"

#include "common/json_lines.h"
#include "common/output.h"

namespace zvqrn::scanner {

const char* const EXIT_CODES_HELP =
    "Exit codes: 0 accepted / done; 1 trouble on this machine (a file, a socket); 2 wrong command line;\n"
    "3 nothing listens there / nothing found; 4 refused (an x-status other than 0001 and 0002,\n"
    "or a StatusOut other than OK); 5 time-out; 6 protocol error (what came back is not an\n"
    "answer of this protocol, or the connection ended before it).";

void PrintFailure(bool json, const Failure& failure) {
  if (json) {
    tools::PrintJsonLine({{"event", "failure"},
                          {"reason", failure.what()},
                          {"exitCode", static_cast<int>(failure.exitCode)}});
  }
  tools::PrintError(std::string("quorin-scanner: ") + failure.what());
}

}  // namespace zvqrn::scanner
