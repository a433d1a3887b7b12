// How quorin-scanner ends, and what ends a subcommand early.
#pragma once

#include <stdexcept>
#include <string>

namespace zvqrn::scanner {

enum ExitCode : int {
  EXIT_OK = 0,
  EXIT_LOCAL_TROUBLE = 1,   // this machine: a file that cannot be written, no socket
  EXIT_USAGE = 2,           // the command line cannot be used
  EXIT_NOTHING_THERE = 3,   // nothing listens there, or nothing was found
  EXIT_REFUSED = 4,         // the PC or its host declined
  EXIT_TIMED_OUT = 5,       // no answer in time
  EXIT_PROBLEM_FOUND = 4,   // doctor: something keeps this PC from being found
  EXIT_PROTOCOL_ERROR = 6,  // what came back is no answer of this protocol
};

// The list of exit codes for help texts.
extern const char* const EXIT_CODES_HELP;

// Ends the subcommand with this exit code; what() is the reason, already escaped.
struct Failure : std::runtime_error {
  Failure(ExitCode code, const std::string& reason) : std::runtime_error(reason), exitCode(code) {}
  ExitCode exitCode;
};

// Prints what ended the subcommand early: on standard error, with `json` also as an object.
void PrintFailure(bool json, const Failure& failure);

}  // namespace zvqrn::scanner
