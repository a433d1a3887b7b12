#include "base/service_lock.h"

#include "platform/thread.h"

namespace zvqrn {
namespace {

// Counts the calling thread in while it looks into the slot.  DestroyHeldServiceLock empties the
// slot first and then waits for the count; both orders of the two sequentially consistent accesses
// are safe: either the visitor sees the empty slot, or the destroyer sees the visitor.
class Visit {
 public:
  explicit Visit(ServiceLock* lock) : lock_(lock) { lock_->visitors.fetch_add(1); }
  ~Visit() { lock_->visitors.fetch_sub(1); }
  Visit(const Visit&) = delete;
  Visit& operator=(const Visit&) = delete;

  platform::Semaphore* Semaphore() const { return lock_->semaphore.load(); }

 private:
  ServiceLock* lock_;
};

// How often a taken lock is tried before its release is waited for, and how long a wait lasts until
// the slot is looked at again.
constexpr int LOCK_TRIES = 32;
constexpr std::int32_t LOCK_LOOK_MS = 10;

// Takes a count if one is free or comes free in time.
LockResult TryFor(platform::Semaphore* semaphore, std::int32_t milliseconds) {
  if (semaphore == nullptr) {
    return LOCK_FAILED;
  }
  switch (platform::WaitSemaphore(semaphore, milliseconds)) {
    case platform::SYNC_SIGNALLED:
      return LOCK_OBTAINED;
    case platform::SYNC_TIMED_OUT:
      return LOCK_EXHAUSTED;
    default:
      return LOCK_FAILED;
  }
}

}  // namespace

bool CreateServiceLock(ServiceLock* lock, std::int32_t initial, std::int32_t maximum) {
  if (initial < 0 || maximum < 1) {
    return false;
  }
  platform::Semaphore* semaphore = platform::MakeSemaphore(initial, maximum);
  if (semaphore == nullptr) {
    return false;
  }
  platform::Semaphore* empty = nullptr;
  if (!lock->semaphore.compare_exchange_strong(empty, semaphore)) {
    platform::CloseSemaphore(semaphore);
    return false;
  }
  return true;
}

LockResult AcquireServiceLock(ServiceLock* lock) {
  const Visit visit(lock);
  // The slot is read again each time: a lock that is being destroyed must not be waited for.
  LockResult result = TryFor(visit.Semaphore(), 0);
  for (int tries = 1; result == LOCK_EXHAUSTED && tries < LOCK_TRIES; tries++) {
    platform::YieldToOthers();
    result = TryFor(visit.Semaphore(), 0);
  }
  while (result == LOCK_EXHAUSTED) {
    result = TryFor(visit.Semaphore(), LOCK_LOOK_MS);
  }
  return result;
}

LockResult TryAcquireServiceLock(ServiceLock* lock) {
  const Visit visit(lock);
  return TryFor(visit.Semaphore(), 0);
}

void ReleaseServiceLock(ServiceLock* lock) {
  const Visit visit(lock);
  if (platform::Semaphore* semaphore = visit.Semaphore()) {
    platform::SignalSemaphore(semaphore);
  }
}

void DestroyServiceLock(ServiceLock* lock) {
  AcquireServiceLock(lock);
  DestroyHeldServiceLock(lock);
}

void DestroyHeldServiceLock(ServiceLock* lock) {
  platform::Semaphore* semaphore = lock->semaphore.exchange(nullptr);
  if (semaphore == nullptr) {
    return;
  }
  while (lock->visitors.load() != 0) {
    platform::YieldToOthers();
  }
  platform::CloseSemaphore(semaphore);
}

}  // namespace zvqrn
