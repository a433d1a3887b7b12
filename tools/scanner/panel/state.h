// What the threads of the panel share: its virtual scanners, its searches, its load and those that
// serve the page.  Whoever touches it holds the lock, for a short time: nobody waits for the
// network meanwhile.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "common/json_lines.h"
#include "scanner/panel/history.h"
#include "scanner/panel/lock.h"
#include "scanner/panel/pcs.h"

namespace zvqrn::scanner {

class VirtualScanner;
class LiveConnection;

struct PanelState {
  Lock lock;
  std::function<void()> tellNews;  // set before any thread begins, and called without the lock
  std::atomic<bool> ending{false};

  // ---- Guarded by the lock ----
  History history;
  PcTable pcs;
  std::string searchTrouble;  // why this machine cannot search; empty: it can
  std::string product;        // by whose scope the panel searches; empty: by the default scope
  std::map<int, std::shared_ptr<VirtualScanner>> scanners;
  std::set<LiveConnection*> connections;  // that are open
};

// Notes something that is no message: "connected", "closed" or "trouble", of a virtual scanner (0:
// of none).  With the lock.
void NoteEvent(PanelState* state, int scanner, const std::string& kind, const std::string& pc,
               const std::string& text);

// A text for the page, without its end when it is too long; a letter that is cut through shows as
// U+FFFD.
std::string Shortened(const std::string& text);

// A PC as the page gets it.  With the lock.
tools::JsonObject DescribePc(const KnownPc& pc);

// Tells the pages how the list of PCs is now.  With the lock.
void TellPcs(PanelState* state);
tools::JsonObject DescribePcs(const PanelState& state);

}  // namespace zvqrn::scanner
