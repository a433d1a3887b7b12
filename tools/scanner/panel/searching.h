// The panel's searches for PCs, one after the other, and doctor's examinations between them, since
// both need the port where the replies come.  One thread.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "platform/sync.h"
#include "scanner/panel/state.h"

namespace zvqrn::scanner {

class Searching {
 public:
  // Searches at `to` (network byte order; a group or a PC) from `from`, 0 for the address that
  // discover would choose.
  Searching(PanelState* state, std::uint32_t to, std::uint32_t from);
  Searching(const Searching&) = delete;
  Searching& operator=(const Searching&) = delete;
  ~Searching();

  // Starts the thread; throws a Failure when the system gives none.
  void Start();

  // ---- From any thread, with the state's lock ----

  // Searches at once, as a scanner of this product (empty: of any), and shows the exchange.
  void SearchNow(const std::string& product);
  // Asks this address too, from now on; false when there are enough.
  bool AskToo(std::uint32_t address);
  // Has doctor look at the PC whose replies come from this address; false for an unknown one.
  bool Examine(std::uint32_t sender);
  void Poke();

 private:
  static void Run(void* searching);
  void Work();
  void Round(bool isShown);
  std::vector<FoundPc> Ask(std::uint32_t to, const std::string& product, bool isShown);
  void ShowExchange(const std::string& frames);
  void ExamineNext();

  PanelState* state_;
  const std::uint32_t to_;
  const std::uint32_t from_;
  platform::Event* event_;

  // ---- Guarded by the state's lock ----
  bool isWanted_ = false;
  std::set<std::uint32_t> alsoAsked_;
  std::vector<std::uint32_t> toExamine_;
};

}  // namespace zvqrn::scanner
