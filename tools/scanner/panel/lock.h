// A lock for what several threads of the panel share.  (MinGW's threads of Windows know no
// std::mutex.)
#pragma once

#include "platform/sync.h"
#include "scanner/command/exit_code.h"

namespace zvqrn::scanner {

class Lock {
 public:
  Lock() : turn_(platform::MakeSemaphore(1, 1)) {
    if (turn_ == nullptr) {
      throw Failure(EXIT_LOCAL_TROUBLE, "this machine gives no lock");
    }
  }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
  ~Lock() { platform::CloseSemaphore(turn_); }

 private:
  friend class Guard;
  platform::Semaphore* turn_;
};

// Holds a lock while it lives; waits for it without end.
class Guard {
 public:
  explicit Guard(const Lock& lock) : turn_(lock.turn_) {
    platform::WaitSemaphore(turn_, platform::WAIT_WITHOUT_END);
  }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;
  ~Guard() { platform::SignalSemaphore(turn_); }

 private:
  platform::Semaphore* turn_;
};

}  // namespace zvqrn::scanner
