// The PCs that the panel shows, made of one search after the other: found, gone after some that it
// did not answer, its name changed.  Knows no sockets; the owner locks.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "scanner/doctor/finding.h"
#include "scanner/search/search.h"

namespace zvqrn::scanner {

// Anybody can send replies: of more PCs than these only the number is told.
constexpr std::size_t PCS_LIMIT = 64;
// A PC that answered so many searches in a row with silence is gone, and later no longer listed.
constexpr int ROUNDS_UNTIL_GONE = 3;
constexpr int ROUNDS_UNTIL_FORGOTTEN = 60;
// The longest name that is shown whole.
constexpr std::size_t SHOWN_OF_A_NAME = 200;

struct KnownPc {
  std::uint32_t sender = 0;  // network byte order: whence its replies come, which tells it apart
  PcDescription description;
  std::string formerName;  // what it was called before; empty: it has kept its name
  std::vector<std::string> notes;
  std::int64_t lastReplyMs = 0;  // since 1970
  double replyMs = 0;            // how long the last search waited for it
  int missed = 0;                // searches in a row that it has not answered
  bool gone = false;
  bool isOwn = false;  // an address of this machine
  bool examining = false;
  bool examined = false;
  std::vector<Finding> findings;  // of doctor, the last time that it was asked
};

struct PcTable {
  std::vector<KnownPc> pcs;     // in the order in which they were found
  std::size_t moreSenders = 0;  // that have found no room in the last search
};

KnownPc* FindPc(PcTable* table, std::uint32_t sender);

// Takes in what a search has brought so far; true when that is new: found, back, or described
// otherwise.  `nowMs` is since 1970.
bool NoteReplies(PcTable* table, const std::vector<FoundPc>& found, std::int64_t nowMs);

// Takes note of the end of a search that brought these; true when one is now gone or forgotten.
bool NoteEndOfRound(PcTable* table, const std::vector<FoundPc>& found);

// A name for the page: what could hide or turn a line is written out, and its end is left out when
// it is too long.
std::string ShownName(const std::string& name);

}  // namespace zvqrn::scanner
