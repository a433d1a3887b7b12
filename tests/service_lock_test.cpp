#include "base/service_lock.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "base/thread_state.h"
#include "platform/clock.h"
#include "platform/thread.h"
#include "support/patience.h"

namespace zvqrn {
namespace {

TEST(ServiceLock, CountsAndFails) {
  ServiceLock lock{};
  EXPECT_EQ(AcquireServiceLock(&lock), LOCK_FAILED) << "an empty slot";
  EXPECT_EQ(TryAcquireServiceLock(&lock), LOCK_FAILED);
  ReleaseServiceLock(&lock);
  DestroyServiceLock(&lock);
  EXPECT_FALSE(CreateServiceLock(&lock, -1, 1));
  EXPECT_FALSE(CreateServiceLock(&lock, 0, 0));

  ASSERT_TRUE(CreateServiceLock(&lock, 2, 2));
  EXPECT_FALSE(CreateServiceLock(&lock, 1, 1)) << "the slot is taken";
  EXPECT_EQ(AcquireServiceLock(&lock), LOCK_OBTAINED);
  EXPECT_EQ(TryAcquireServiceLock(&lock), LOCK_OBTAINED);
  EXPECT_EQ(TryAcquireServiceLock(&lock), LOCK_EXHAUSTED);
  for (int i = 0; i < 3; i++) {
    ReleaseServiceLock(&lock);  // the third is one too many and does not count
  }
  EXPECT_EQ(TryAcquireServiceLock(&lock), LOCK_OBTAINED);
  EXPECT_EQ(TryAcquireServiceLock(&lock), LOCK_OBTAINED);
  EXPECT_EQ(TryAcquireServiceLock(&lock), LOCK_EXHAUSTED);
  ReleaseServiceLock(&lock);
  DestroyServiceLock(&lock);
  EXPECT_EQ(AcquireServiceLock(&lock), LOCK_FAILED);
}

// Threads use a lock that comes and goes under them: each attempt holds it alone or fails, and
// nobody touches a closed one.
TEST(ServiceLock, MayBeDestroyedWhileOthersTry) {
  ServiceLock lock{};
  std::atomic<bool> done{false};
  std::atomic<std::int32_t> holders{0};
  std::atomic<std::int32_t> obtained{0};
  std::atomic<std::int32_t> failed{0};
  std::vector<std::thread> users;
  for (int i = 0; i < 3; i++) {
    users.emplace_back([&] {
      while (!done.load()) {
        const LockScope scope(&lock);
        if (scope.Held()) {
          EXPECT_EQ(holders.fetch_add(1), 0);
          obtained++;
          holders.fetch_sub(1);
        } else {
          failed++;
        }
      }
    });
  }
  // Goes on for a while, and until both outcomes have been seen often.
  const std::int64_t begin = platform::MonotonicMilliseconds();
  EXPECT_TRUE(test::Eventually([&] {
    for (int i = 0; i < 10; i++) {
      EXPECT_TRUE(CreateServiceLock(&lock, 1, 1));
      std::this_thread::yield();
      DestroyServiceLock(&lock);
      std::this_thread::yield();
    }
    return platform::MonotonicMilliseconds() - begin > 200 && obtained > 100 && failed > 100;
  })) << obtained
      << " obtained, " << failed << " failed";
  done = true;
  for (std::thread& user : users) {
    user.join();
  }
}

// An unload tells threads to stop without their locks.
TEST(ThreadState, KeepsAStopThatCameDuringTheSetUp) {
  ThreadState state{THREAD_STOP_REQUESTED};
  ReportSetUp(&state, true);
  EXPECT_EQ(state.load(), THREAD_STOP_REQUESTED);
  ReportSetUp(&state, false);
  EXPECT_EQ(state.load(), THREAD_IDLE) << "which the stop waits for";
}

// Nobody would answer a request to stop that is written over the word of a thread that has ended.
TEST(ThreadState, AsksOnlyThreadsThatLiveToStop) {
  const struct {
    ThreadStateValue before, told, requested;
  } cases[] = {
      {THREAD_IDLE, THREAD_IDLE, THREAD_IDLE},
      {THREAD_STARTING, THREAD_STOP_REQUESTED, THREAD_STOP_REQUESTED},
      {THREAD_RUNNING, THREAD_STOP_REQUESTED, THREAD_STOP_REQUESTED},
      {THREAD_STOP_REQUESTED, THREAD_STOP_REQUESTED, THREAD_STOP_REQUESTED},
      {THREAD_FAILED, THREAD_FAILED, THREAD_IDLE},
  };
  for (const auto& test : cases) {
    ThreadState state{test.before};
    ServiceLock none{};
    EXPECT_EQ(TellThreadToStop(&state), test.told == THREAD_STOP_REQUESTED) << test.before;
    EXPECT_EQ(state.load(), test.told) << test.before;
    EXPECT_EQ(RequestThreadStop(&state, &none), test.told == THREAD_STOP_REQUESTED) << test.before;
    EXPECT_EQ(state.load(), test.requested) << test.before;
  }
}

TEST(Semaphore, WaitsForTheTimeGiven) {
  platform::Semaphore* semaphore = platform::MakeSemaphore(0, 1);
  ASSERT_NE(semaphore, nullptr);
  const std::int64_t begin = platform::MonotonicMilliseconds();
  EXPECT_EQ(platform::WaitSemaphore(semaphore, 999), platform::SYNC_TIMED_OUT);
  EXPECT_GE(platform::MonotonicMilliseconds() - begin, 998);
  std::thread giver([&] {
    platform::SleepMilliseconds(20);
    platform::SignalSemaphore(semaphore);
  });
  EXPECT_EQ(platform::WaitSemaphore(semaphore, platform::WAIT_WITHOUT_END),
            platform::SYNC_SIGNALLED);
  giver.join();
  platform::CloseSemaphore(semaphore);
}

TEST(Event, StaysSetAndEitherOfTwoWakes) {
  platform::Event* first = platform::MakeEvent();
  platform::Event* second = platform::MakeEvent();
  EXPECT_EQ(platform::WaitEvent(first, 0), platform::SYNC_TIMED_OUT);
  std::thread setter([&] {
    platform::SleepMilliseconds(20);
    platform::SignalEvent(second);
  });
  EXPECT_EQ(platform::WaitEitherEvent(first, second), platform::EITHER_SECOND);
  setter.join();
  platform::SignalEvent(first);
  EXPECT_EQ(platform::WaitEitherEvent(first, second), platform::EITHER_FIRST);
  EXPECT_EQ(platform::WaitEvent(first, 0), platform::SYNC_SIGNALLED);
  platform::ClearEvent(first);
  EXPECT_EQ(platform::WaitEvent(first, 10), platform::SYNC_TIMED_OUT);
  platform::CloseEvent(first);
  platform::CloseEvent(second);
}

// The threads of a service wait each for an event of its own, and each is woken by its own.
TEST(Event, WakesWhoWaitsForIt) {
  platform::Event* events[4] = {};
  std::vector<std::thread> waiting;
  for (platform::Event*& event : events) {
    event = platform::MakeEvent();
    waiting.emplace_back([event] {
      EXPECT_EQ(platform::WaitEvent(event, test::PATIENCE_MS), platform::SYNC_SIGNALLED);
    });
  }
  // As a rule all wait by now; an event that was set before is no different to them.
  platform::SleepMilliseconds(50);
  for (int i = 3; i >= 0; i--) {
    platform::SignalEvent(events[i]);
    waiting[static_cast<std::size_t>(i)].join();
  }
  for (platform::Event* event : events) {
    platform::CloseEvent(event);
  }
}

}  // namespace
}  // namespace zvqrn
