#include "scanner/panel/pcs.h"

#include <algorithm>

#include "common/utf8.h"

namespace zvqrn::scanner {

namespace {

bool IsSame(const PcDescription& one, const PcDescription& other) {
  return one.name == other.name && one.address == other.address && one.eventPort == other.eventPort;
}

// Where no letter is cut through.
std::size_t EndOfLetter(const std::string& text, std::size_t size) {
  while (size < text.size() && (static_cast<unsigned char>(text[size]) & 0xC0U) == 0x80U) {
    --size;
  }
  return size;
}

}  // namespace

KnownPc* FindPc(PcTable* table, std::uint32_t sender) {
  const auto found = std::find_if(table->pcs.begin(), table->pcs.end(),
                                  [&](const KnownPc& pc) { return pc.sender == sender; });
  return found == table->pcs.end() ? nullptr : &*found;
}

bool NoteReplies(PcTable* table, const std::vector<FoundPc>& found, std::int64_t nowMs) {
  bool isNew = false;
  std::size_t more = 0;
  for (const FoundPc& reply : found) {
    KnownPc* pc = FindPc(table, reply.sender);
    if (pc == nullptr && table->pcs.size() >= PCS_LIMIT) {
      ++more;
      continue;
    }
    if (pc == nullptr) {
      table->pcs.emplace_back();
      pc = &table->pcs.back();
      pc->sender = reply.sender;
      pc->isOwn = IsOwnAddress(reply.sender);
      isNew = true;
    } else if (pc->description.name != reply.description.name) {
      pc->formerName = pc->description.name;
    }
    const std::vector<std::string> notes = NotesOn(reply);
    isNew = isNew || pc->gone || !IsSame(pc->description, reply.description) || pc->notes != notes;
    pc->description = reply.description;
    pc->notes = notes;
    pc->lastReplyMs = nowMs;
    pc->replyMs = reply.replyMs;
    pc->missed = 0;
    pc->gone = false;
  }
  table->moreSenders = more;
  return isNew;
}

bool NoteEndOfRound(PcTable* table, const std::vector<FoundPc>& found) {
  bool isNew = false;
  for (KnownPc& pc : table->pcs) {
    const bool answered = std::any_of(found.begin(), found.end(), [&](const FoundPc& reply) {
      return reply.sender == pc.sender;
    });
    pc.missed = answered ? 0 : pc.missed + 1;
    isNew = isNew || (!pc.gone && pc.missed >= ROUNDS_UNTIL_GONE);
    pc.gone = pc.missed >= ROUNDS_UNTIL_GONE;
  }
  const auto forgotten = std::remove_if(
      table->pcs.begin(), table->pcs.end(),
      [](const KnownPc& pc) { return pc.missed >= ROUNDS_UNTIL_FORGOTTEN && !pc.examining; });
  isNew = isNew || forgotten != table->pcs.end();
  table->pcs.erase(forgotten, table->pcs.end());
  return isNew;
}

std::string ShownName(const std::string& name) {
  const std::string shown =
      tools::EscapeUtf8(name.substr(0, EndOfLetter(name, std::min(name.size(), SHOWN_OF_A_NAME))));
  return name.size() > SHOWN_OF_A_NAME ? shown + "..." : shown;
}

}  // namespace zvqrn::scanner
