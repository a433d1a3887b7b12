#include "scanner/wire/exchange.h"

#include "common/text.h"
#include "common/vocabulary.h"
#include "platform/clock.h"
#include "scanner/wire/document.h"

namespace zvqrn::scanner {

namespace {

std::string HeaderText(const Message& message, const char* name) {
  const std::string* value = FindHeader(message.headers, name);
  return value == nullptr ? std::string() : *value;
}

bool IsOfThisProtocol(const Message& message) {
  return HeaderText(message, tools::HEADER_PROTOCOL_NAME) == tools::PROTOCOL_NAME;
}

// The first thing that is wrong with an answer; empty when nothing is.
std::string FindProblem(const Answer& answer, const std::string& uid) {
  if (answer.protocolVersion != tools::VERSION_1 && answer.protocolVersion != tools::VERSION_2) {
    return "x-protocol-version is '" + tools::EscapeBytes(answer.protocolVersion) + "'";
  }
  std::int32_t number = 0;
  if (answer.status.size() != 4 || !tools::ParseNumber(answer.status, &number) || number < 0) {
    return "x-status is '" + tools::EscapeBytes(answer.status) + "', not four digits";
  }
  if (!uid.empty() && answer.uid != uid) {
    return "the answer is for uid '" + tools::EscapeBytes(answer.uid) + "', not '" +
           tools::EscapeBytes(uid) + "'";
  }
  if (tools::IsAccepting(answer.status) && !answer.hasStatusOut) {
    return "an accepting answer without a PushScanResponse";
  }
  if (answer.hasStatusOut &&
      tools::FindWord(tools::STATUS_OUT_WORDS, answer.statusOut) == nullptr) {
    return "StatusOut is '" + tools::EscapeBytes(answer.statusOut) + "'";
  }
  return {};
}

Answer ReadAnswer(const Message& message, const std::string& uid) {
  if (!IsAnswer(message) || !IsOfThisProtocol(message)) {
    throw Failure(EXIT_PROTOCOL_ERROR,
                  "an answer of another protocol: " + tools::EscapeBytes(message.startLine));
  }
  Answer answer;
  answer.uid = HeaderText(message, tools::HEADER_UID);
  answer.parentUid = HeaderText(message, tools::HEADER_PARENT_UID);
  answer.subevent = HeaderText(message, tools::HEADER_SUBEVENT);
  answer.protocolVersion = HeaderText(message, tools::HEADER_PROTOCOL_VERSION);
  answer.status = HeaderText(message, tools::HEADER_STATUS);
  answer.hasStatusOut = ReadStatusOut(message.body, &answer.statusOut);
  answer.problem = FindProblem(answer, uid);
  return answer;
}

void Confirm(Connection* connection, const Message& request) {
  Message confirmation;
  confirmation.startLine = "HTTP/1.0 200 OK";
  confirmation.headers = {
      {tools::HEADER_CONTENT_TYPE, tools::CONTENT_TYPE},
      {tools::HEADER_PROTOCOL_NAME, tools::PROTOCOL_NAME},
      {tools::HEADER_PROTOCOL_VERSION, HeaderText(request, tools::HEADER_PROTOCOL_VERSION)},
      {tools::HEADER_UID, HeaderText(request, tools::HEADER_UID)},
      {tools::HEADER_STATUS, tools::STATUS_ACCEPTED}};
  Send(connection, MessageBytes(confirmation));
}

void TakeData(Connection* connection, const Message& message, const DataHandler& onData) {
  HostData data;
  data.uid = HeaderText(message, tools::HEADER_UID);
  data.parentUid = HeaderText(message, tools::HEADER_PARENT_UID);
  data.protocolVersion = HeaderText(message, tools::HEADER_PROTOCOL_VERSION);
  data.bytes = message.body;
  if (!IsOfThisProtocol(message) || data.uid.empty() || data.bytes.empty()) {
    throw Failure(EXIT_PROTOCOL_ERROR, "a POST that is no data of a host: uid '" +
                                           tools::EscapeBytes(data.uid) + "', " +
                                           std::to_string(data.bytes.size()) + " bytes");
  }
  Confirm(connection, message);
  onData(data);
}

}  // namespace

Answer AwaitAnswer(Connection* connection, const std::string& uid, const DataHandler& onData) {
  const std::int64_t deadlineMs = platform::MonotonicMilliseconds() + connection->link.timeoutMs;
  Message message;
  while (Receive(connection, deadlineMs, &message)) {
    if (!IsRequest(message)) {
      return ReadAnswer(message, uid);
    }
    TakeData(connection, message, onData);
    // Data that never pauses must not put the deadline off.
    if (platform::MonotonicMilliseconds() >= deadlineMs) {
      break;
    }
  }
  if (HoldsForeignBytes(*connection)) {
    throw Failure(EXIT_PROTOCOL_ERROR, "what came is no message of this protocol: " +
                                           tools::EscapeBytes(connection->received.substr(0, 60)));
  }
  throw Failure(EXIT_TIMED_OUT,
                "no answer within " + std::to_string(connection->link.timeoutMs) + " ms");
}

bool AwaitData(Connection* connection, std::int64_t deadlineMs, const DataHandler& onData) {
  Message message;
  if (!Receive(connection, deadlineMs, &message)) {
    return false;
  }
  if (!IsRequest(message)) {
    throw Failure(EXIT_PROTOCOL_ERROR,
                  "a message that nothing asked for: " + tools::EscapeBytes(message.startLine));
  }
  TakeData(connection, message, onData);
  return true;
}

bool AwaitEither(Connection* connection, std::int64_t deadlineMs, const AnswerHandler& onAnswer,
                 const DataHandler& onData) {
  Message message;
  if (!Receive(connection, deadlineMs, &message)) {
    return false;
  }
  if (IsRequest(message)) {
    TakeData(connection, message, onData);
  } else {
    onAnswer(ReadAnswer(message, {}));
  }
  return true;
}

ExitCode JudgeAnswer(const Answer& answer) {
  if (!answer.problem.empty()) {
    return EXIT_PROTOCOL_ERROR;
  }
  const bool accepted =
      tools::IsAccepting(answer.status) && tools::EqualsIgnoringCase(answer.statusOut, "OK");
  return accepted ? EXIT_OK : EXIT_REFUSED;
}

}  // namespace zvqrn::scanner
