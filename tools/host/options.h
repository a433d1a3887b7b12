// What the command line of quorin-host says, checked and ready to use.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace zvqrn::host {

// To which requests the host's data is sent.
enum SendTo { SEND_TO_START, SEND_TO_SINGLE, SEND_TO_ALL };

constexpr std::int32_t SEND_INSIDE_CALLBACK = -1;

struct HostOptions {
  std::string libraryPath;    // empty: the library beside the program
  std::string pcName;         // as the library takes it; empty: the PC's own
  bool ignoresPeers = false;  // the filter declines every scanner that looks for the PC by name
  std::int32_t filterDelayMs = 0;  // before the filter returns
  bool json = false;               // one object a line instead of prose
  std::int32_t answer = 1;         // result of the callback
  bool answerGiven = false;
  std::map<std::string, std::int32_t>
      answerOf;                    // by driver name as the library gives it; before `answer`
  std::int32_t delayMs = 0;        // before the callback returns
  std::vector<std::string> sends;  // data for the scanner, in this order
  SendTo sendTo = SEND_TO_START;
  std::int32_t sendAfterMs = SEND_INSIDE_CALLBACK;  // or so long after the callback returned
  bool asks = false;                                // the program that reads the output decides
  std::int32_t askTimeoutMs = 60'000;               // longest wait for its word
  std::int32_t requests = 0;                        // end after so many answers; 0: no limit
  double seconds = 0;                               // end after this time; 0: no limit
  double restartSeconds = 0;                        // stop and start so often; 0: never
};

// Reads the command line.  False when the program is to end at once with `*exitCode`: help or the
// version was asked for, or something is wrong with it, and it has been printed.
bool ReadOptions(const std::vector<std::string>& arguments, HostOptions* options, int* exitCode);

// The word of an answer code as the scanner gets it ("OK"; "BUSY" for 9, "ERROR" for any that has
// no word).
const char* AnswerWord(std::int32_t code);

}  // namespace zvqrn::host
