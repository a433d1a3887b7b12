// What an answer means: the codes of x-status, the words of StatusOut, and how quorin-scanner ends.
#pragma once

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

// True for the x-status codes that accept a request.
bool IsAccepting(const std::string& status);

// A few words for an x-status code or a StatusOut word; "unknown ..." for any other.
const char* StatusMeaning(const std::string& status);
const char* StatusOutMeaning(const std::string& word);

// True for a word that StatusOut may hold, in whatever case.
bool IsStatusOutWord(const std::string& word);

}  // namespace zvqrn::scanner
