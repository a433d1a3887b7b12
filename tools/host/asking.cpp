#include "host/asking.h"

#include <algorithm>

#include "common/input_lines.h"
#include "common/json_lines.h"
#include "common/text.h"
#include "common/vocabulary.h"
#include "host/event_log.h"

namespace zvqrn::host {

namespace {

// So many requests are remembered for data that comes for them later.
constexpr std::size_t REQUESTS_LIMIT = 10'000;
constexpr std::int32_t PEER_DECLINED = 0;
constexpr std::int32_t PEER_ANSWERED = 1;

// Takes the state's lock as long as a question is asked: `print` prints it.
template <typename Print>
std::int32_t Ask(HostState* state, bool isPeer, const Print& print) {
  const std::unique_ptr<platform::Event, decltype(&platform::CloseEvent)> settled(
      platform::MakeEvent(), platform::CloseEvent);
  Question question{isPeer, settled.get(), false, isPeer ? PEER_DECLINED : QRN_RESPONSE_BUSY};
  std::int32_t number = 0;
  bool waits = false;
  {
    const HeldLock lock = LockState(state);
    number = ++state->lastNumber;
    print(number);
    waits = settled != nullptr && !state->asksNoMore;
    if (waits) {
      state->questions[number] = &question;
    }
  }
  if (waits) {
    platform::WaitEvent(settled.get(), state->options->askTimeoutMs);
  }
  const HeldLock lock = LockState(state);
  state->questions.erase(number);
  if (!question.hasWord) {
    LogExpired(number);
  }
  return question.word;
}

// ---- Lines ---------------------------------------------------------------------------------------

struct Line {
  tools::JsonMembers members;

  const tools::JsonMember* Find(const char* name, tools::JsonKind kind) const {
    const auto member = members.find(name);
    return member == members.end() || member->second.kind != kind ? nullptr : &member->second;
  }
};

// The number of a code, or of its word; false for any other.
bool ReadCode(const tools::JsonMember& member, std::int32_t* code) {
  if (member.kind == tools::JSON_TEXT &&
      tools::EqualsIgnoringCase(member.text, tools::BUSY_ANSWER.text)) {
    *code = tools::BUSY_ANSWER.number;
    return true;
  }
  const bool isNumber = member.kind == tools::JSON_INTEGER && member.integer > 0 &&
                        member.integer <= tools::BUSY_ANSWER.number;
  const auto number = static_cast<std::int32_t>(isNumber ? member.integer : 0);
  const tools::Word* word = isNumber ? tools::FindWord(tools::STATUS_OUT_WORDS, number)
                            : member.kind == tools::JSON_TEXT
                                ? tools::FindWord(tools::STATUS_OUT_WORDS, member.text)
                                : nullptr;
  *code = word != nullptr ? word->number : number;
  return word != nullptr || number == tools::BUSY_ANSWER.number;
}

// Settles the question of this number; what is wrong, if anything.
std::string Settle(HostState* state, std::int32_t number, bool isPeer, std::int32_t word) {
  const auto found = state->questions.find(number);
  if (found == state->questions.end() || found->second->hasWord) {
    return "no question " + std::to_string(number) + " waits for a word";
  }
  if (found->second->isPeer != isPeer) {
    return "question " + std::to_string(number) +
           (isPeer ? " is about a request: answer it" : " is about a scanner: it wants a filter");
  }
  found->second->hasWord = true;
  found->second->word = word;
  platform::SignalEvent(found->second->settled);
  return {};
}

std::string FollowAnswer(HostState* state, const Line& line, std::int32_t number) {
  const auto member = line.members.find("code");
  std::int32_t code = 0;
  if (member == line.members.end() || !ReadCode(member->second, &code)) {
    return "\"code\" must be one of " + tools::ListWords(tools::STATUS_OUT_WORDS, " ") + " " +
           tools::BUSY_ANSWER.text + ", or its number";
  }
  const HeldLock lock = LockState(state);
  return Settle(state, number, false, code);
}

std::string FollowFilter(HostState* state, const Line& line, std::int32_t number) {
  const tools::JsonMember* answer = line.Find("answer", tools::JSON_TRUTH);
  if (answer == nullptr) {
    return "\"answer\" must be true or false";
  }
  const HeldLock lock = LockState(state);
  return Settle(state, number, true, answer->truth ? PEER_ANSWERED : PEER_DECLINED);
}

std::string FollowSend(HostState* state, const Line& line, std::int32_t number) {
  const tools::JsonMember* text = line.Find("text", tools::JSON_TEXT);
  const tools::JsonMember* coded = line.Find("bytes", tools::JSON_TEXT);
  if ((text == nullptr) == (coded == nullptr)) {
    return "the data must be a string, in either \"text\" or \"bytes\"";
  }
  std::string bytes = text == nullptr ? std::string() : text->text;
  if (coded != nullptr && !tools::BytesOfJsonText(coded->text, &bytes)) {
    return "\"bytes\" has a character beyond U+00FF";
  }
  if (bytes.empty()) {
    return "there is nothing to send";
  }
  EventHeader header{};
  {
    const HeldLock lock = LockState(state);
    const auto request = state->requests.find(number);
    if (request == state->requests.end()) {
      return "no request " + std::to_string(number) + " is known";
    }
    header = request->second;
  }
  EventHeader own = header;
  const std::int32_t result =
      state->library->sendData(&own, bytes.data(), static_cast<std::int32_t>(bytes.size()));
  const HeldLock lock = LockState(state);
  LogSend(true, number, header, tools::FieldText(own.uid, sizeof own.uid), bytes, result);
  return {};
}

// Follows one line; what is wrong with it, if anything.
std::string Follow(HostState* state, const std::string& text, bool* stops) {
  Line line;
  std::string why;
  if (!tools::ReadJsonObject(text, &line.members, &why)) {
    return why;
  }
  const tools::JsonMember* what = line.Find("do", tools::JSON_TEXT);
  const std::string verb = what == nullptr ? std::string() : what->text;
  if (verb == "stop") {
    *stops = true;
    return {};
  }
  if (verb != "answer" && verb != "filter" && verb != "send") {
    return "\"do\" must be one of answer, filter, send, stop";
  }
  const tools::JsonMember* member = line.Find("number", tools::JSON_INTEGER);
  if (member == nullptr || member->integer < 1 || member->integer > INT32_MAX) {
    return "\"number\" must be that of a question";
  }
  const auto number = static_cast<std::int32_t>(member->integer);
  return verb == "answer"   ? FollowAnswer(state, line, number)
         : verb == "filter" ? FollowFilter(state, line, number)
                            : FollowSend(state, line, number);
}

}  // namespace

std::int32_t AskAboutRequest(HostState* state, const EventHeader& header, std::int32_t documentKind,
                             const void* requestData, std::int32_t requestDataSize) {
  std::int32_t number = 0;
  const std::int32_t code = Ask(state, false, [&](std::int32_t given) {
    number = given;
    ++state->received;
    state->requests[number] = header;
    if (state->requests.size() > REQUESTS_LIMIT) {
      state->requests.erase(state->requests.begin());
    }
    LogRequest(true, number, header, documentKind, requestData, requestDataSize);
  });
  const HeldLock lock = LockState(state);
  ++state->answered;
  LogAnswer(true, number, header, code);
  platform::SignalEvent(state->changed);
  return code;
}

std::int32_t AskAboutPeer(HostState* state, const PeerDescription& peer) {
  std::int32_t number = 0;
  const std::int32_t word = Ask(state, true, [&](std::int32_t given) {
    number = given;
    LogPeerQuestion(number, peer);
  });
  const HeldLock lock = LockState(state);
  LogPeerAnswer(number, word == PEER_ANSWERED);
  return word;
}

bool TakeWords(HostState* state) {
  std::vector<tools::InputLine> lines;
  bool goesOn = tools::TakeInputLines(&lines);
  for (const tools::InputLine& line : lines) {
    if (tools::TrimBlanks(line.text).empty()) {
      continue;
    }
    bool stops = false;
    const std::string mistake =
        line.tooLong ? "it has more than 16 MiB" : Follow(state, line.text, &stops);
    if (!mistake.empty()) {
      const HeldLock lock = LockState(state);
      LogMistake(line.number, mistake);
    }
    goesOn = goesOn && !stops;
  }
  return goesOn;
}

void AskNoMore(HostState* state) {
  const HeldLock lock = LockState(state);
  state->asksNoMore = true;
  for (const auto& [number, question] : state->questions) {
    platform::SignalEvent(question->settled);
  }
}

}  // namespace zvqrn::host
