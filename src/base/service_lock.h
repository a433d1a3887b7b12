// ServiceLock: the one kind of lock of the library, a counting semaphore.
//
// Locks come and go with the service and with each connection, while the host may call an export at
// any moment.  So a lock is a slot that always exists, in ServiceState, and the semaphore in it is
// what is made and destroyed: whoever uses the slot is counted while inside, and the semaphore is
// closed only when nobody is.  A thread that comes too late finds an empty slot and fails.
//
// Any thread may call any function.  The order in which locks may nest stands in
// docs/architecture.md.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/sync.h"

namespace zvqrn {

// All zero is an empty slot: no lock.
struct ServiceLock {
  std::atomic<platform::Semaphore*> semaphore;
  std::atomic<std::int32_t> visitors;  // threads inside one of the operations below
};

enum LockResult : std::int32_t {
  LOCK_OBTAINED = 0,
  LOCK_FAILED = -1,    // no lock in the slot, or the wait failed
  LOCK_EXHAUSTED = -2  // TryAcquireServiceLock: every count is taken
};

// Makes the lock of an empty slot, with `initial` of `maximum` counts free.  False for a slot that
// holds a lock, for counts below 0 and 1, and when the system refuses.
bool CreateServiceLock(ServiceLock* lock, std::int32_t initial, std::int32_t maximum);

// Takes one count, trying until one is free: at first lets other threads run in between, then waits
// for the release, so that many who want a lock, or one that is held for long, burn no processor.
LockResult AcquireServiceLock(ServiceLock* lock);

// Takes one count if one is free.
LockResult TryAcquireServiceLock(ServiceLock* lock);

// Gives one count back; does nothing for an empty slot.
void ReleaseServiceLock(ServiceLock* lock);

// Takes one count (so it waits for the holder), then empties the slot.  Threads that are trying to
// acquire the lock fail.  Does nothing for an empty slot.
void DestroyServiceLock(ServiceLock* lock);

// Empties the slot of a lock that the caller holds.
void DestroyHeldServiceLock(ServiceLock* lock);

// Holds a lock for a scope; ask `Held` before touching what it guards.
class LockScope {
 public:
  explicit LockScope(ServiceLock* lock)
      : lock_(AcquireServiceLock(lock) == LOCK_OBTAINED ? lock : nullptr) {}
  ~LockScope() {
    if (lock_ != nullptr) {
      ReleaseServiceLock(lock_);
    }
  }
  LockScope(const LockScope&) = delete;
  LockScope& operator=(const LockScope&) = delete;

  bool Held() const { return lock_ != nullptr; }

 private:
  ServiceLock* lock_;
};

}  // namespace zvqrn
