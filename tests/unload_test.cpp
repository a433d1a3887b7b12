// The library is unloaded, and the process ends, in every state of the service, with the processor
// idle and busy.  QUORIN_UNLOAD_ROUNDS says how often; QUORIN_BUSY_THREADS with how many threads
// that only compute, where many of these tests run at once.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <thread>
#include <vector>

#include "common/module_loader.h"
#include "platform/clock.h"
#include "platform/thread.h"
#include "support/host.h"
#include "support/late_address.h"
#include "support/messages.h"
#include "support/patience.h"
#include "support/process.h"
#include "support/scanner.h"
#include "support/slp_scanner.h"

namespace zvqrn::test {
namespace {

enum State { STOPPED, WAITING, IDLE, IN_CALLBACK, STARTING, FLOODED };
const char* const NAMES[] = {"stopped", "waiting", "idle", "callback", "starting", "flooded"};

// A host and the scanners around it, brought into a state.
struct Scene {
  explicit Scene(State state, std::int32_t callbackMilliseconds = 100) : host(LibraryPath()) {
    if (state == WAITING) {
      TakeAddress();
    }
    host.verdict = [this, callbackMilliseconds](EventHeader*) {
      inCallback = true;
      platform::SleepMilliseconds(callbackMilliseconds);
      inCallback = false;
      return QRN_RESPONSE_OK;
    };
    const auto flood = state == FLOODED ? std::make_unique<SlpScanner>() : nullptr;
    EXPECT_EQ(host.Start(), 1);
    EXPECT_EQ(host.StatusTexts().find("257 769") != std::string::npos, state == WAITING);
    if (state == STOPPED) {
      EXPECT_EQ(host.Stop(), 1);
    } else if (state == IDLE || state == WAITING) {
      platform::SleepMilliseconds(30);
    }
    for (int xid = 0; state == FLOODED && xid < 40; xid++) {
      flood->Send(Encode({xid, xid % 2 == 0 ? "default" : "XS-200"}));
    }
    for (int i = state == FLOODED ? 4 : state == IN_CALLBACK ? 2 : 0; i > 0; i--) {
      scanners.push_back(std::make_unique<Scanner>());
      scanners.back()->Send(Request(Identity("2.00", "1"), DOCUMENT_V2));
    }
    EXPECT_TRUE(state != IN_CALLBACK || host.WaitForDeliveries(1));
  }

  std::atomic<bool> inCallback{false};
  Host host;
  std::vector<std::unique_ptr<Scanner>> scanners;
};

// A number from the environment.
int Setting(const char* name, int otherwise) {
  const char* value = std::getenv(name);
  return value == nullptr ? otherwise : std::atoi(value);
}

class Unload : public testing::TestWithParam<State> {
 protected:
  void TearDown() override {
    if (GetParam() == WAITING) {
      GiveAddress();
    }
  }

  static void Repeat(std::ptrdiff_t busyThreads) {
    const std::ptrdiff_t threads = Threads();
    std::atomic<bool> done{false};
    const auto spin = [&] {
      while (!done.load()) {
      }
    };
    std::vector<std::thread> busy;
    while (static_cast<std::ptrdiff_t>(busy.size()) < busyThreads) {
      busy.emplace_back(spin);
    }
    std::int64_t worst = 0;
    std::int64_t best = PATIENCE_MS;
    for (int round = Setting("QUORIN_UNLOAD_ROUNDS", 2); round > 0 && !HasFailure(); round--) {
      Scene scene(GetParam());
      if (GetParam() == WAITING) {
        // The unload comes just before, while or after the watcher starts the threads.
        GiveAddress();
        platform::SleepMilliseconds(ADDRESS_NOTICE_MS - 15 + 10 * (round % 4));
      }
      const std::int32_t endedBefore = SocketUsesEnded();
      const std::int64_t begin = platform::MonotonicMilliseconds();
      scene.host.Unload();
      const std::int64_t took = platform::MonotonicMilliseconds() - begin;
      EXPECT_GE(took, GetParam() == STOPPED || GetParam() == WAITING ? 0 : 2000);
      EXPECT_LT(took, PATIENCE_MS);
      EXPECT_EQ(SocketUsesEnded(), endedBefore) << "it takes the loader lock";
      worst = std::max(worst, took);
      best = std::min(best, took);
      EXPECT_FALSE(scene.inCallback.load());
      EXPECT_FALSE(IsLoaded());
      // A thread that was left behind would now meet memory that is gone.
      platform::SleepMilliseconds(25);
      // The system takes its time to end one that has left; a busy Wine most of all.
      EXPECT_TRUE(Eventually([&] { return Threads() <= threads + busyThreads; }));
    }
    done = true;
    for (std::thread& thread : busy) {
      thread.join();
    }
    EXPECT_TRUE(GetParam() != STOPPED || best < 2000) << "nobody is there to be waited for";
    printf("[   worst  ] %lld ms\n", static_cast<long long>(worst));
  }
};

TEST_P(Unload, LeavesNothingBehind) {
  Repeat(0);
}

TEST_P(Unload, LeavesNothingBehindUnderLoad) {
  Repeat(Setting("QUORIN_BUSY_THREADS", static_cast<int>(std::thread::hardware_concurrency()) + 1));
}

// The end of a process waits neither for a callback nor for a thread.
TEST_P(Unload, IsNotWaitedForAtProcessEnd) {
  constexpr std::int32_t CALLBACK_MS = 2 * PATIENCE_MS;
  const std::string moment = tools::ProgramFolder() + "/exit-" + NAMES[GetParam()];
  std::int64_t best = CALLBACK_MS;
  const auto ended = [&](int status) {
    std::int64_t left = 0;
    std::ifstream(moment) >> left;
    best = std::min(best, platform::MonotonicMilliseconds() - left);
    return testing::ExitedWithCode(7)(status);
  };
  // Where there is least to end, the best of some is shorter than an unload, which takes 2 s.
  for (int round = GetParam() == IDLE ? 3 : 1; round > 0; round--) {
    EXPECT_EXIT(
        {
          const auto* scene = new Scene(GetParam(), CALLBACK_MS);
          std::ofstream(moment) << platform::MonotonicMilliseconds();
          exit(scene != nullptr && !HasFailure() ? 7 : 1);
        },
        ended, "");
  }
  EXPECT_LT(best, GetParam() == IDLE ? 1900 : PATIENCE_MS);
}

// What a host has registered before it loads the library comes last when the process ends, and may
// unload the library, whose threads are still there.
TEST(UnloadAtProcessEnd, LeavesTheThreadsTheirCode) {
  static Scene* scene = nullptr;
  EXPECT_EXIT(
      {
        std::atexit([] {
          scene->host.Unload();
          // Longer than any wait of theirs.
          platform::SleepMilliseconds(700);
        });
        scene = new Scene(IDLE);
        exit(testing::Test::HasFailure() ? 1 : 7);
      },
      testing::ExitedWithCode(7), "");
}

INSTANTIATE_TEST_SUITE_P(State, Unload,
                         testing::Values(STOPPED, WAITING, IDLE, IN_CALLBACK, STARTING, FLOODED),
                         [](const auto& test) { return NAMES[test.param]; });

}  // namespace
}  // namespace zvqrn::test
