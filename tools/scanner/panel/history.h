// What the panel remembers: the messages in the order in which they came, each under a number that
// stays, the frames of a capture, and the changes to tell the pages of.  All of it is bounded: what
// is oldest goes first.  Knows no protocol.  One thread at a time.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "scanner/explain/head.h"

namespace zvqrn::scanner {

struct HistoryLimits {
  std::size_t messages = 10'000;
  std::size_t bytes = std::size_t{64} * 1024 * 1024;  // of messages and their fields, all together
  std::size_t frameBytes = std::size_t{64} * 1024 * 1024;  // of frames, all together
  std::size_t changes = 8192;
  std::size_t changeBytes = std::size_t{8} * 1024 * 1024;
};

// A message, or something else that happened.
struct Remembered {
  std::uint64_t number = 0;  // from 1
  std::string summary;       // what the page draws, as JSON
  std::string bytes;
  bool forgotten = false;  // the bytes were too many to keep
  std::vector<Field> fields;
  std::size_t bodyOffset = 0;  // where the host's data begins in the bytes; 0: it has none
};

class History {
 public:
  explicit History(const HistoryLimits& limits = {}) : limits_(limits) {}

  // Adds what happened and gives its number.  The summary is set by SetSummary.
  std::uint64_t Add(Remembered happened);

  // What has this number; null when it is no longer, or never was, remembered.
  Remembered* Find(std::uint64_t number);

  const std::deque<Remembered>& Messages() const { return messages_; }

  // Adds a frame of the capture; gives its number, from 1.
  std::size_t AddFrame(const std::string& frame);
  // The frames that are kept, as they stand in a file.
  std::string Frames() const;

  // Notes a change for the pages: what it is of, and how that is now, as JSON.
  void Tell(const std::string& kind, const std::string& json);
  // The number of the last change.
  std::uint64_t LastChange() const { return nextChange_ - 1; }
  // The changes after number `*last`, as Server-Sent Events; moves `*last` on.  Whoever has missed
  // too much is told to look at everything anew ("anew").
  std::string ChangesAfter(std::uint64_t* last) const;

  // Forgets messages and frames; numbers go on.
  void Clear();

 private:
  void ForgetBytes();

  HistoryLimits limits_;
  std::deque<Remembered> messages_;
  std::uint64_t nextNumber_ = 1;
  std::uint64_t nextWithBytes_ = 1;  // the messages before have none
  std::size_t bytes_ = 0;
  std::deque<std::string> frames_;
  std::size_t frameBytes_ = 0;
  std::size_t frameCount_ = 0;
  std::deque<std::string> changes_;
  std::uint64_t nextChange_ = 1;
  std::size_t changeBytes_ = 0;
};

}  // namespace zvqrn::scanner
