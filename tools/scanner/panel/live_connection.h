// One connection of a virtual scanner, explained while it lives: each frame of its capture is taken
// in as it comes, and what it makes of a message, or changes in an earlier one, is put into the
// history.  Used by the scanner's thread only; it takes the lock itself.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "scanner/explain/connection_account.h"
#include "scanner/panel/state.h"

namespace zvqrn::scanner {

class LiveConnection {
 public:
  // `scanner` is the number of the virtual scanner.
  LiveConnection(PanelState* state, int scanner) : state_(state), scanner_(scanner) {}
  LiveConnection(const LiveConnection&) = delete;
  LiveConnection& operator=(const LiveConnection&) = delete;
  ~LiveConnection();

  // Takes a frame of the capture (wire/capture_file.h).
  void TakeFrame(const std::string& frame);

  // The connection has ended: what is still open is settled.
  void End();

  // True while an answer to something that was sent is due.
  bool OwesAnswer() const;

  // True when no more messages can be kept of this connection: it is to be ended.
  bool IsFull() const;

 private:
  void Begin(const Packet& packet, std::size_t frame);
  void Publish();
  void PublishItem(std::size_t number);

  PanelState* state_;
  int scanner_;
  bool begun_ = false;
  ConnectionAccount account_;
  std::vector<Item> items_;
  std::vector<std::uint64_t> numbers_;  // of the items, in the history
  std::vector<RuleId> rules_;           // as they were told
  std::size_t textsSize_ = 0;           // of the items' texts
};

// The parts of a message that the page draws.  `partner` and `start` are numbers of the history, 0
// for none.
tools::JsonObject DescribeItem(const Item& item, std::uint64_t number, int scanner,
                               std::uint64_t partner, std::uint64_t start, double milliseconds);

// Remembers an item's bytes and fields, which it gives away, and gives its number.
std::uint64_t RememberItem(PanelState* state, Item* item, std::string bytes);

}  // namespace zvqrn::scanner
