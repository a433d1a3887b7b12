#include "scanner/explain/connection_account.h"

#include <algorithm>

#include "common/text.h"
#include "common/vocabulary.h"

namespace zvqrn::scanner {

namespace {

// The library's limits: of a message in memory, of silence inside a head and inside a body, and of
// one body altogether, from when its head is whole.
constexpr std::size_t MESSAGE_LIMIT = std::size_t{1024} * 1024;
constexpr std::int64_t HEAD_SILENCE_US = 10'000'000;
constexpr std::int64_t BODY_PAUSE_US = 300'000;
constexpr std::int64_t BODY_TIME_US = 30'000'000;
constexpr std::size_t EARLY_LIMIT = 64;  // packets; then the missing one will not come any more
constexpr char STATUS_OUT[] = "StatusOut";

Item MakeItem(ItemKind kind, const Side& side, const platform::Endpoint& from,
              const platform::Endpoint& to) {
  Item item;
  item.kind = kind;
  item.frame = side.lastFrame;
  item.timeUs = side.lastUs;
  item.from = from;
  item.to = to;
  return item;
}

void NotePiece(Side* side, const Piece& piece) {
  side->lastFrame = piece.frame;
  side->lastUs = piece.timeUs;
}

std::string Quoted(const std::string& text) {
  return "'" + tools::EscapeBytes(text) + "'";
}

// ---- Requests ------------------------------------------------------------------------------------

std::string RequestTitle(const Head& head, std::string_view body) {
  const std::string subevent = HeaderText(head, tools::HEADER_SUBEVENT);
  std::string title = head.isResponse ? "response" : subevent.empty() ? "request" : subevent;
  title = tools::EscapeBytes(title) + " " + Quoted(HeaderText(head, tools::HEADER_UID));
  const std::string parent = HeaderText(head, tools::HEADER_PARENT_UID);
  title += parent.empty() ? "" : " of " + Quoted(parent);
  Field product;
  if (FindElement(body, "ProductNameIn", &product)) {
    title += ", product " + Quoted(product.value);
  }
  return title;
}

bool IsWord(const Head& head, const char* word) {
  return tools::EqualsIgnoringCase(HeaderText(head, tools::HEADER_SUBEVENT), word);
}

// The oldest job under this uid; null when there is none, or one of them is an END.
Job* FindOpenJob(ConnectionAccount* connection, const std::string& uid) {
  const auto found = connection->jobs.find(uid);
  if (found == connection->jobs.end()) {
    return nullptr;
  }
  std::vector<Job>& jobs = found->second;
  const bool anyEnd =
      std::any_of(jobs.begin(), jobs.end(), [](const Job& job) { return job.isEnd; });
  return anyEnd ? nullptr : &jobs.front();
}

void NoteJob(ConnectionAccount* connection, const Head& head, std::size_t item) {
  connection->jobs[HeaderText(head, tools::HEADER_UID)].push_back(
      {item, IsWord(head, tools::SUBEVENT_START_WORD), IsWord(head, tools::SUBEVENT_END_WORD),
       false});
}

// Judges one message of the scanner; `message` is as much of it as there is.
void TakeMessage(ConnectionAccount* connection, const Head& head, const std::string& message,
                 std::vector<Item>* items) {
  const Side& side = connection->fromScanner;
  Item item = MakeItem(ITEM_REQUEST, side, connection->scanner, connection->pc);
  const std::string_view body = std::string_view(message).substr(head.length);
  item.title = RequestTitle(head, body);
  item.uid = HeaderText(head, tools::HEADER_UID);
  connection->lastRequest[item.uid] = items->size();
  if (!head.isResponse) {
    connection->waiting[item.uid].push_back(items->size());
  }
  item.size = message.size();
  item.bytes = connection->keepsBytes ? message : std::string();
  item.onExtra = !connection->isMain;
  item.fields = head.fields;
  ListElements(body, head.length, &item.fields);
  ConnectionView view;
  view.isMain = connection->isMain;
  const Job* parent = nullptr;
  if (IsWord(head, tools::SUBEVENT_END_WORD)) {
    parent = FindOpenJob(connection, HeaderText(head, tools::HEADER_PARENT_UID));
    // The START may lie before what was captured; and of a connection that only one side was
    // captured of, the answers say nothing.
    view.parentIsOpen =
        parent == nullptr ? !connection->begun : parent->answered || !connection->fromPc.known;
  }
  const Judgement judgement = JudgeMessage(head, body, view);
  item.hasRule = true;
  item.rule = judgement.rule;
  item.detail = judgement.detail;
  if (parent != nullptr) {
    item.start = parent->item;
  }
  if (item.rule == RULE_BUSY && connection->mainSince > 0) {
    item.detail =
        "the connection that is served began in frame " + std::to_string(connection->mainSince);
  }
  if (item.rule == RULE_ACCEPTED) {
    NoteJob(connection, head, items->size());
  }
  items->push_back(item);
}

// What no message can be made of is dropped with all that is in hand.
void DropHeld(ConnectionAccount* connection, RuleId rule, const Head& head,
              std::vector<Item>* items) {
  Side* side = &connection->fromScanner;
  Item item = MakeItem(ITEM_REQUEST, *side, connection->scanner, connection->pc);
  item.title = "no whole message";
  item.uid = HeaderText(head, tools::HEADER_UID);
  item.size = side->held.size();
  item.bytes = connection->keepsBytes ? side->held : std::string();
  item.onExtra = !connection->isMain;
  item.fields = head.fields;
  item.hasRule = true;
  item.rule = rule;
  const std::size_t line = rule == RULE_HEADER_LINE ? head.problemOffset : 0;
  const std::size_t lineSize = side->held.find_first_of("\r\n", line) - line;
  item.detail = side->held.substr(line, std::min<std::size_t>(lineSize, 60));
  items->push_back(item);
  side->held.clear();
  side->inBody = false;
}

// Why what is held is no whole head yet.
RuleId WhyUnfinished(const std::string& held) {
  const bool bare = held.find("\r\n") == std::string::npos && held.find('\n') != std::string::npos;
  return bare ? RULE_LF_LINES : RULE_HEAD_CUT;
}

// The bytes of a message that the library takes together; its Content-Length is not negative.
std::size_t SizeOf(const Head& head) {
  return std::min(head.length + static_cast<std::size_t>(head.contentLength), MESSAGE_LIMIT);
}

// Makes messages of what is held, as far as they are whole; `last` takes an unfinished body as it
// stands.
void CutMessages(ConnectionAccount* connection, bool last, std::vector<Item>* items) {
  Side* side = &connection->fromScanner;
  std::string* held = &side->held;
  while (!held->empty()) {
    const Head head = ReadHead(*held);
    if (head.state == HEAD_UNFINISHED) {
      if (held->size() >= HEAD_LIMIT) {
        DropHeld(connection, RULE_HEAD_TOO_LONG, head, items);
      }
      return;
    }
    if (head.state == HEAD_MALFORMED) {
      DropHeld(connection, head.problem, head, items);
      return;
    }
    const std::int64_t total = static_cast<std::int64_t>(head.length) + head.contentLength;
    if (total >= 0 && head.contentLength < 0) {
      DropHeld(connection, RULE_NEGATIVE_LENGTH, head, items);
      return;
    }
    const std::size_t wanted = total < 0 ? held->size() : SizeOf(head);
    if (held->size() < wanted && !last) {
      side->bodySinceUs = side->inBody ? side->bodySinceUs : side->lastUs;
      side->inBody = true;
      return;
    }
    side->inBody = false;
    TakeMessage(connection, head, held->substr(0, wanted), items);
    held->erase(0, wanted);
  }
}

// What a pause does to a message that is not whole.
void AgeHeld(ConnectionAccount* connection, std::int64_t nowUs, std::vector<Item>* items) {
  Side* side = &connection->fromScanner;
  if (side->held.empty() || !connection->timed) {
    return;
  }
  const Head head = ReadHead(side->held);
  const std::int64_t silenceUs = nowUs - side->lastUs;
  if (head.state != HEAD_COMPLETE) {
    if (silenceUs >= HEAD_SILENCE_US) {
      DropHeld(connection, WhyUnfinished(side->held), head, items);
    }
  } else if (silenceUs > BODY_PAUSE_US) {
    CutMessages(connection, true, items);
  }
}

// Only what comes first counts on a connection that is not the main one.
void TakeExtraBytes(ConnectionAccount* connection, const Piece& piece, std::vector<Item>* items) {
  Side* side = &connection->fromScanner;
  if (connection->judgedOnce) {
    return;
  }
  connection->judgedOnce = true;
  NotePiece(side, piece);
  side->held = piece.bytes.substr(0, HEAD_LIMIT);
  const Head head = ReadHead(side->held);
  if (head.state == HEAD_COMPLETE) {
    TakeMessage(connection, head, side->held, items);
    side->held.clear();
  } else {
    const bool bare = WhyUnfinished(side->held) == RULE_LF_LINES ||
                      (head.state == HEAD_MALFORMED && head.problem == RULE_LF_LINES);
    DropHeld(connection, bare ? RULE_LF_LINES : RULE_EXTRA_HEAD, head, items);
  }
  if (connection->othersOpen >= EXTRA_PLACES) {
    items->back().rule = RULE_PLACES_TAKEN;
    items->back().detail.clear();
  }
}

void TakeScannerBytes(ConnectionAccount* connection, const Piece& piece, std::vector<Item>* items) {
  if (!connection->isMain) {
    TakeExtraBytes(connection, piece, items);
    return;
  }
  AgeHeld(connection, piece.timeUs, items);
  Side* side = &connection->fromScanner;
  NotePiece(side, piece);
  for (std::size_t at = 0; at < piece.bytes.size();) {
    // The library takes in no more at once than a head may have, or than a body lacks.
    const Head head = ReadHead(side->held);
    const std::size_t most = head.state == HEAD_COMPLETE ? SizeOf(head) : HEAD_LIMIT;
    const std::string taken = piece.bytes.substr(at, most - side->held.size());
    at += taken.size();
    side->held += taken;
    CutMessages(connection, false, items);
    if (side->inBody && piece.timeUs - side->bodySinceUs >= BODY_TIME_US) {
      CutMessages(connection, true, items);
    }
  }
}

// ---- What the PC sends ---------------------------------------------------------------------------

// What an answer says of a request that was in order.
RuleId RuleOfAnswer(const Item& answer) {
  if (answer.status == tools::STATUS_BUSY) {
    return RULE_HOST_BUSY;
  }
  if (answer.status == tools::STATUS_INTERNAL_FAILURE) {
    return RULE_INTERNAL_FAILURE;
  }
  const tools::Word* word = tools::FindWord(tools::STATUS_OUT_WORDS, answer.statusOut);
  if (!tools::IsAccepting(answer.status) || word == nullptr) {
    return RULE_UNEXPECTED;
  }
  const std::string text = word->text;
  if (text == "OK") {
    return RULE_ACCEPTED;
  }
  if (text == "TWAIN_NOT_INSTALL") {
    return RULE_NO_DRIVER;
  }
  return text == "ERROR" ? RULE_NO_UTILITY_LIBRARY : RULE_HOST_REFUSED;
}

// Settles the job of a request as the library does with its answer.
void SettleJob(ConnectionAccount* connection, std::size_t request, const std::vector<Item>& items) {
  const auto list = connection->jobs.find(items[request].uid);
  if (list == connection->jobs.end()) {
    return;
  }
  const auto job = std::find_if(list->second.begin(), list->second.end(),
                                [&](const Job& known) { return known.item == request; });
  if (job == list->second.end()) {
    return;
  }
  if (job->isStart) {
    job->answered = true;
    return;
  }
  list->second.erase(job);
  if (list->second.empty()) {
    connection->jobs.erase(list);
  }
  if (items[request].start != NO_ITEM) {
    connection->jobs.erase(items[items[request].start].uid);
  }
}

// Takes the request that an answer is for from those that wait: the oldest of this uid that is due
// an answer, or else one that is due none.
std::size_t TakeWaiting(ConnectionAccount* connection, const std::string& uid,
                        const std::vector<Item>& items) {
  const auto list = connection->waiting.find(uid);
  if (list == connection->waiting.end()) {
    return NO_ITEM;
  }
  std::vector<std::size_t>& waiting = list->second;
  auto found = std::find_if(waiting.begin(), waiting.end(), [&](std::size_t request) {
    const Outcome outcome = RuleOf(items[request].rule).outcome;
    return outcome == OUTCOME_ACCEPTED || outcome == OUTCOME_REFUSED;
  });
  found = found == waiting.end() ? waiting.begin() : found;
  const std::size_t request = *found;
  waiting.erase(found);
  if (waiting.empty()) {
    connection->waiting.erase(list);
  }
  return request;
}

void TieAnswer(ConnectionAccount* connection, std::size_t answer, std::vector<Item>* items) {
  const std::size_t request = TakeWaiting(connection, (*items)[answer].uid, *items);
  if (request == NO_ITEM) {
    return;
  }
  Item& asked = (*items)[request];
  const Item& given = (*items)[answer];
  asked.partner = answer;
  (*items)[answer].partner = request;
  const std::string predicted = RuleOf(asked.rule).status;
  if (asked.rule == RULE_ACCEPTED) {
    asked.rule = RuleOfAnswer(given);
    // The library keeps no START that it answered itself; whether it did, the END's answer tells.
    if (given.status == tools::STATUS_BAD_PARENT) {
      asked.rule = RULE_PARENT;
      asked.detail = asked.start != NO_ITEM ? "the library itself had answered that START"
                                            : "its START is not in the capture";
    }
  } else if (predicted != given.status) {
    const bool isBusy = given.status == tools::STATUS_BUSY;
    asked.detail = "by the rule " + std::string(RuleOf(asked.rule).name) +
                   " another answer was due; " + asked.detail;
    asked.rule = isBusy ? RULE_BUSY : RULE_UNEXPECTED;
  }
  SettleJob(connection, request, *items);
}

void TieData(const ConnectionAccount& connection, std::size_t data, const std::string& parentUid,
             std::vector<Item>* items) {
  const auto found = connection.lastRequest.find(parentUid);
  if (found != connection.lastRequest.end()) {
    (*items)[data].partner = found->second;
  }
}

void TakePcMessage(ConnectionAccount* connection, const Head& head, const std::string& message,
                   std::vector<Item>* items) {
  Item item = MakeItem(head.isResponse ? ITEM_ANSWER : ITEM_DATA, connection->fromPc,
                       connection->pc, connection->scanner);
  item.uid = HeaderText(head, tools::HEADER_UID);
  item.size = message.size();
  item.bytes = connection->keepsBytes ? message : std::string();
  item.fields = head.fields;
  item.status = HeaderText(head, tools::HEADER_STATUS);
  if (head.isResponse) {
    const std::string_view body = std::string_view(message).substr(head.length);
    ListElements(body, head.length, &item.fields);
    Field word;
    item.statusOut = FindElement(body, STATUS_OUT, &word) ? word.value : std::string();
    item.title = "answer " + Quoted(item.uid) + ", " + tools::EscapeBytes(item.status) +
                 (item.statusOut.empty() ? "" : " " + tools::EscapeBytes(item.statusOut));
  } else {
    item.title = "data " + Quoted(item.uid) + " for " +
                 Quoted(HeaderText(head, tools::HEADER_PARENT_UID)) + ", " +
                 std::to_string(message.size() - head.length) + " bytes";
  }
  items->push_back(item);
  if (head.isResponse) {
    TieAnswer(connection, items->size() - 1, items);
  } else {
    TieData(*connection, items->size() - 1, HeaderText(head, tools::HEADER_PARENT_UID), items);
  }
}

void TakePcBytes(ConnectionAccount* connection, const Piece& piece, std::vector<Item>* items) {
  Side* side = &connection->fromPc;
  NotePiece(side, piece);
  side->held += piece.bytes;
  while (!side->held.empty()) {
    const Head head = ReadHead(side->held);
    const std::size_t total =
        head.length + static_cast<std::size_t>(std::max(head.contentLength, 0));
    if (head.state == HEAD_MALFORMED ||
        (head.state == HEAD_UNFINISHED && side->held.size() >= HEAD_LIMIT)) {
      side->held.clear();
    }
    if (head.state != HEAD_COMPLETE || side->held.size() < total) {
      return;
    }
    TakePcMessage(connection, head, side->held.substr(0, total), items);
    side->held.erase(0, total);
  }
}

// ---- Packets -------------------------------------------------------------------------------------

// Gives the bytes of a packet that are new, when it is its turn.
bool TakeTurn(Side* side, const Packet& packet, Piece* piece) {
  if (!side->known) {
    side->known = true;
    side->next = packet.sequence;
  }
  const auto ahead = static_cast<std::int32_t>(packet.sequence - side->next);
  if (ahead > 0) {
    return false;
  }
  const auto known = static_cast<std::size_t>(-static_cast<std::int64_t>(ahead));
  *piece = {packet.frame, packet.timeUs, {}};
  if (known < packet.bytes.size()) {
    piece->bytes = packet.bytes.substr(known);
    side->next += static_cast<std::uint32_t>(piece->bytes.size());
  }
  return true;
}

// The packet that is next in turn among those that came early; without one, and with too many
// waiting, the gap is stepped over.
bool TakeEarly(Side* side, Piece* piece) {
  for (auto packet = side->early.begin(); packet != side->early.end(); ++packet) {
    if (TakeTurn(side, *packet, piece)) {
      piece->timeUs = std::max(piece->timeUs, side->lastUs);
      side->early.erase(packet);
      return true;
    }
  }
  if (side->early.size() > EARLY_LIMIT) {
    side->held.clear();
    side->inBody = false;
    side->next = side->early.front().sequence;
    return TakeEarly(side, piece);
  }
  return false;
}

void NoteOpening(ConnectionAccount* connection, const Packet& packet, bool fromScanner) {
  Side* side = fromScanner ? &connection->fromScanner : &connection->fromPc;
  if (packet.begins) {
    side->known = true;
    side->next = packet.sequence + 1;
    connection->begun = connection->begun || fromScanner;
  }
  if (!fromScanner) {
    connection->refused = connection->refused || (packet.resets && !connection->accepted);
    connection->accepted = connection->accepted || !packet.resets;
  }
}

void NoteEnd(ConnectionAccount* connection, const Packet& packet, std::vector<Item>* items) {
  Side* side = &connection->fromScanner;
  AgeHeld(connection, packet.timeUs, items);
  if (!side->held.empty()) {
    const Head head = ReadHead(side->held);
    DropHeld(connection, head.state == HEAD_COMPLETE ? RULE_BODY_CUT : WhyUnfinished(side->held),
             head, items);
  }
}

void AddConnectionItem(const ConnectionAccount& connection, RuleId rule, std::vector<Item>* items) {
  Item item;
  item.kind = ITEM_CONNECTION;
  item.frame = connection.opening.frame;
  item.timeUs = connection.opening.timeUs;
  item.from = connection.scanner;
  item.to = connection.pc;
  item.title = "connection";
  item.hasRule = true;
  item.rule = rule;
  items->push_back(item);
}

// A request that nobody answered.
void NoteNoAnswer(const ConnectionAccount& connection, Item* item) {
  const Outcome outcome = RuleOf(item->rule).outcome;
  if (outcome == OUTCOME_ACCEPTED && connection.fromPc.known) {
    item->rule = RULE_NO_ANSWER;
    if (connection.endedBy != nullptr) {
      item->detail = std::string(connection.endedBy) + " ended the connection first";
    }
  } else if (outcome == OUTCOME_ACCEPTED || outcome == OUTCOME_REFUSED) {
    item->detail += std::string(item->detail.empty() ? "" : "; ") +
                    (connection.fromPc.known ? "no answer was seen"
                                             : "nothing that the PC sent is in the capture");
  }
}

}  // namespace

void TakePacket(ConnectionAccount* connection, const Packet& packet, std::vector<Item>* items) {
  const bool fromScanner = packet.from.address == connection->scanner.address &&
                           packet.from.port == connection->scanner.port;
  Side* side = fromScanner ? &connection->fromScanner : &connection->fromPc;
  NoteOpening(connection, packet, fromScanner);
  AgeHeld(connection, packet.timeUs, items);
  if (!packet.bytes.empty() && !packet.begins) {
    Piece piece;
    bool isTurn = TakeTurn(side, packet, &piece);
    if (!isTurn) {
      side->early.push_back(packet);
      isTurn = TakeEarly(side, &piece);
    }
    for (; isTurn; isTurn = TakeEarly(side, &piece)) {
      if (piece.bytes.empty()) {
        continue;
      }
      if (fromScanner) {
        TakeScannerBytes(connection, piece, items);
      } else {
        TakePcBytes(connection, piece, items);
      }
    }
  }
  if (packet.ends || packet.resets) {
    if (connection->endedBy == nullptr) {
      connection->endedBy = fromScanner ? "the scanner" : "the PC";
    }
    side->ended = true;
    if (fromScanner) {
      NoteEnd(connection, packet, items);
    }
  }
}

void TakeUntimedBytes(ConnectionAccount* connection, const std::string& bytes, bool fromPc,
                      std::vector<Item>* items) {
  connection->timed = false;
  if (fromPc) {
    TakePcBytes(connection, {0, 0, bytes}, items);
    return;
  }
  TakeScannerBytes(connection, {0, 0, bytes}, items);
  const Head head = ReadHead(connection->fromScanner.held);
  CutMessages(connection, true, items);
  if (!connection->fromScanner.held.empty()) {
    DropHeld(connection, WhyUnfinished(connection->fromScanner.held), head, items);
  }
}

void EndConnection(ConnectionAccount* connection, std::vector<Item>* items) {
  Side* side = &connection->fromScanner;
  if (connection->refused) {
    AddConnectionItem(*connection, RULE_NOT_LISTENING, items);
  } else if (connection->begun && !connection->accepted) {
    AddConnectionItem(*connection, RULE_NO_CONNECTION, items);
  } else if (!connection->isMain && !connection->judgedOnce && connection->fromPc.ended &&
             connection->othersOpen >= EXTRA_PLACES) {
    AddConnectionItem(*connection, RULE_PLACES_TAKEN, items);
  }
  if (!side->held.empty()) {
    const Head head = ReadHead(side->held);
    if (head.state == HEAD_COMPLETE) {
      CutMessages(connection, true, items);
    } else {
      DropHeld(connection, WhyUnfinished(side->held), head, items);
    }
  }
}

void SettleUnanswered(const ConnectionAccount& connection, std::vector<Item>* items) {
  for (const auto& [uid, waiting] : connection.waiting) {
    for (const std::size_t request : waiting) {
      NoteNoAnswer(connection, &(*items)[request]);
    }
  }
}

}  // namespace zvqrn::scanner
