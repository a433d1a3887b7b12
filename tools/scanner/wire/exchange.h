// Exchanges with a PC: a request and its answer, and the host's data that may come at any time
// between; the scanner confirms each piece of data as it comes.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "scanner/wire/connection.h"
#include "scanner/wire/message.h"

namespace zvqrn::scanner {

// What the PC answered, as it came (not escaped).
struct Answer {
  std::string uid;
  std::string parentUid;
  std::string subevent;
  std::string protocolVersion;
  std::string status;
  bool hasStatusOut = false;
  std::string statusOut;
  std::string problem;  // why this is no answer of the protocol; empty when it is one
};

// A piece of the host's data.
struct HostData {
  std::string uid;
  std::string parentUid;
  std::string protocolVersion;
  std::string bytes;
};

using DataHandler = std::function<void(const HostData& data)>;
using AnswerHandler = std::function<void(const Answer& answer)>;

// Waits for the answer to request `uid` (empty: to any), at most the link's time-out.  Data that
// comes first is confirmed and handed to `onData`.
Answer AwaitAnswer(Connection* connection, const std::string& uid, const DataHandler& onData);

// Confirms and hands over the data that comes until `deadlineMs`, at most one message.  False when
// none came.
bool AwaitData(Connection* connection, std::int64_t deadlineMs, const DataHandler& onData);

// The same for whatever comes: data, or an answer to any request.
bool AwaitEither(Connection* connection, std::int64_t deadlineMs, const AnswerHandler& onAnswer,
                 const DataHandler& onData);

// The exit code that an answer stands for.
ExitCode JudgeAnswer(const Answer& answer);

}  // namespace zvqrn::scanner
