#include "platform/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <thread>
#include <vector>

#include "platform/clock.h"
#include "platform/socket.h"

namespace zvqrn::platform {
namespace {

// A host's own: under POSIX every stack of the process gives room to it.
thread_local volatile char threadLocal[300 * 1024];

void UseStack(void* used) {
  volatile char block[100 * 1024];
  for (std::size_t i = 0; i < sizeof block; i += 4096) {
    block[i] = threadLocal[i];
  }
  static_cast<std::atomic<std::int32_t>*>(used)->fetch_add(1 + block[0]);
}

TEST(Thread, HasItsStackBesideThreadLocalStorage) {
  PrepareThreads();
  std::atomic<std::int32_t> used{0};
  for (const StackKind kind : {STACK_FOR_LIBRARY, STACK_FOR_HOST_CALLBACKS}) {
    EXPECT_NE(StartThread(&UseStack, &used, kind), 0U) << kind;
  }
  WaitForThreads();
  EXPECT_EQ(used.load(), 2);
}

// The system gives the id of a thread that has ended to the next one.
TEST(Thread, IsNotTakenForOneThatHasEnded) {
  PrepareThreads();
  std::atomic<bool> done{false};
  std::atomic<std::int32_t> mistaken{0};
  const auto ask = [&] {
    for (int i = 0; i < 50; i++) {
      mistaken += OnLibraryThread() ? 1 : 0;
    }
  };
  std::vector<std::thread> hosts;
  while (hosts.size() < 4) {
    hosts.emplace_back([&] {
      while (!done.load()) {
        std::thread(ask).join();
      }
    });
  }
  // As often as shows a mistake, or as a slow machine comes to it.
  const std::int64_t begin = MonotonicMilliseconds();
  for (int round = 0; round < 600 && MonotonicMilliseconds() - begin < 20000; round++) {
    for (int i = 0; i < 8; i++) {
      StartThread([](void*) { SleepMilliseconds(1); }, nullptr, STACK_FOR_HOST_CALLBACKS);
    }
    WaitForThreads();
  }
  done = true;
  for (std::thread& host : hosts) {
    host.join();
  }
  EXPECT_EQ(mistaken.load(), 0);
}

#if !defined(_WIN32)  // no signals of others there

bool IsBlocked(int signal) {
  sigset_t blocked;
  pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  return sigismember(&blocked, signal) == 1;
}

// The signals blocked on a thread of the library, a digit each: SIGTERM, SIGUSR1, SIGSEGV.  One
// that runs the host's code is started by one that does not, as a delivery is.
TEST(Thread, LeavesTheHostsSignalsToItsThreads) {
  const auto blocked = [](void* result) {
    *static_cast<std::int32_t*>(result) = (IsBlocked(SIGTERM) ? 100 : 0) +
                                          (IsBlocked(SIGUSR1) ? 10 : 0) +
                                          (IsBlocked(SIGSEGV) ? 1 : 0);
  };
  static const ThreadProcedure procedure = blocked;
  sigset_t own;
  sigemptyset(&own);
  sigaddset(&own, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &own, nullptr);
  PrepareThreads();
  std::int32_t ofLibrary = -1;
  std::int32_t ofHost = -1;
  StartThread(procedure, &ofLibrary, STACK_FOR_LIBRARY);
  StartThread([](void* result) { StartThread(procedure, result, STACK_FOR_HOST_CALLBACKS); },
              &ofHost, STACK_FOR_LIBRARY);
  WaitForThreads();
  EXPECT_EQ(ofLibrary, 110);
  EXPECT_EQ(ofHost, 10);
  EXPECT_FALSE(IsBlocked(SIGTERM)) << "the host's own thread is as it was";
  pthread_sigmask(SIG_UNBLOCK, &own, nullptr);
  PrepareThreads();
}

// A handler of the host's that runs on a thread of the library ends none of its waits: one for the
// rest of a body would be taken for the scanner's silence.
TEST(Thread, WaitsOnAfterASignal) {
  const auto before = std::signal(SIGUSR1, [](int) {});
  const SocketHandle socket = OpenUdpSocket();
  ASSERT_NE(socket, NO_SOCKET);
  std::atomic<bool> done{false};
  std::thread waiting([&] {
    const std::int64_t begin = MonotonicMilliseconds();
    EXPECT_EQ(WaitReadable(socket, 200), SOCKET_TIMED_OUT);
    SleepMilliseconds(100);
    EXPECT_GE(MonotonicMilliseconds() - begin, 299);
    done = true;
  });
  while (!done.load()) {
    pthread_kill(waiting.native_handle(), SIGUSR1);
    SleepMilliseconds(5);
  }
  waiting.join();
  CloseSocket(socket);
  std::signal(SIGUSR1, before);
}

#endif

}  // namespace
}  // namespace zvqrn::platform
