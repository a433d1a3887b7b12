// The service while the system fails it: each scenario runs again and again, each time with the
// next call of one function failing, until it runs untouched; and once with every call failing.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <regex>
#include <set>
#include <sstream>

#include "base/service_state.h"
#include "platform/clock.h"
#include "platform/entry.h"
#include "platform/thread.h"
#include "support/failing_calls.h"
#include "support/host.h"
#include "support/messages.h"
#include "support/scanner.h"
#include "support/slp_scanner.h"

// There with the address sanitiser only.
extern "C" __attribute__((weak)) int __lsan_do_recoverable_leak_check();

namespace zvqrn::test {
namespace {

// What a failure does to a scenario: it may change the outcome, or must not; what is PASSING must
// not, and never lasts.
enum Effect { NOTICED, UNNOTICED, PASSING };
const struct {
  Effect effect;
  int error;
  const char* functions;
} WAYS[] = {
    {NOTICED, EIO,
     "calloc pthread_create socket bind listen accept4 getsockname setsockopt gethostname "
     "getifaddrs pipe2 poll recv send recvfrom sendto ArmAddressNotifier "
     "WaitSemaphore WaitEvent WaitEitherEvent"},
    {NOTICED, EMFILE, "fopen if_nametoindex"},
    {UNNOTICED, EMFILE, "eventfd dlopen"},
    {UNNOTICED, ONE_BYTE_ONLY, "recv send"},
    {PASSING, EINTR, "poll recv send recvfrom"},
    {PASSING, EAGAIN, "recv send recvfrom"},
};

// More than any scenario has calls of one function.
constexpr std::int32_t MOST_CALLS = 80;
constexpr int DEADLINE_SECONDS = 120;

// What a failure may have prevented is given up when the library's threads have been at rest or at
// work, tens of milliseconds in all: the time that they wait for a processor does not count.
constexpr std::int64_t WORK_IN_VAIN_MS = 200;
constexpr std::int32_t LOOK_MS = 5;

// Lets the calling thread's calls fail, as those of the library's threads do.
template <typename Action>
std::string AsLibrary(Action action) {
  isSpared = false;
  const std::int32_t result = action();
  isSpared = true;
  return std::to_string(result);
}

std::string Load() {
  service.unloading.store(0);
  const std::string loaded = AsLibrary([] { return platform::OnLibraryLoad() ? 1 : 0; });
  service.getTwainName = [](const char* /*product*/, char* driver) -> std::int32_t {
    return std::snprintf(driver, 34, "Driver") > 0 ? 1 : 0;
  };
  return loaded;
}

void Unload() {
  AsLibrary([] { return platform::OnLibraryUnload(false), 0; });
}

// What a scenario works with.
struct Bench {
  Host host{host::ServiceLibrary{nullptr, &QRNStartService, &QRNStopService, &QRNSendData,
                                 &QRNGetPCName, &QRNSetPCName}};
  SlpScanner slpScanner{"127.0.0.9"};
  std::unique_ptr<Scanner> scanner;
  bool mayMiss = false;  // a failure may have the effect that something does not come
  int xid = 0;

  std::string Start() {
    return AsLibrary([this] { return host.Start(); });
  }
  // Starts, up to the watcher's first look, whose calls are not to fail.
  void StartAndRest() {
    Start();
    EXPECT_TRUE(OthersComeToRest());
  }
  std::string Stop() {
    return AsLibrary([this] { return host.Stop(); });
  }
  void Connect() { scanner = std::make_unique<Scanner>(Scanner::MAY_BE_GONE); }

  // Sends a request and gives the status of its answer.
  std::string Ask(const std::string& uid, const std::string& headers = "") {
    scanner->Send(Request(Identity("2.00", uid) + headers, DOCUMENT_V2));
    std::string status = "silent";
    Comes([&] {
      const std::string answer = scanner->Receive(LOOK_MS);
      if (answer.find("\r\nx-uid : " + uid + "\r\n") != std::string::npos) {
        status = answer.substr(answer.find("x-status : ") + 11, 4);
      } else if (answer.empty() && scanner->HasEnded()) {
        status = "closed";
      }
      return status != "silent";
    });
    return status;
  }

  // Nothing fails any more: an open connection must answer.
  std::string AndUntouched(const std::string& before) {
    isArmed = false;
    mayMiss = false;
    return before == "closed" ? before : before + " " + Ask("untouched");
  }

  // Waits until a look, which takes LOOK_MS or less when it is in vain, finds what it looks for.
  template <typename Look>
  bool Comes(Look look) const {
    const std::int64_t deadline = platform::MonotonicMilliseconds() + PATIENCE_MS;
    const std::int64_t processor = ProcessorMilliseconds();
    std::int64_t rest = 0;
    bool found = look();
    while (!found && platform::MonotonicMilliseconds() < deadline) {
      rest += OthersSleep() ? LOOK_MS : 0;
      const std::int64_t inVain = rest + ProcessorMilliseconds() - processor;
      if (mayMiss && failureCount > 0 && inVain > WORK_IN_VAIN_MS) {
        break;
      }
      found = look();
    }
    return found;
  }

  template <typename Condition>
  std::string Becomes(const char* word, Condition condition) const {
    const auto look = [&] {
      const bool met = condition();
      platform::SleepMilliseconds(met ? 0 : LOOK_MS);
      return met;
    };
    return Comes(look) ? word : "missed";
  }

  std::string Discover() {
    slpScanner.Send(Encode({++xid, "any scanner"}), "127.0.0.1");
    const bool heard = Comes([this] {
      const std::string reply = slpScanner.Receive(LOOK_MS);
      return reply.size() > 12 && ((reply[10] & 0xFF) << 8 | (reply[11] & 0xFF)) == xid;
    });
    return heard ? "heard" : "missed";
  }

  // The default route leads over one of two adapters.
  std::string Follow(const std::string& network, const std::string& adapter) const {
    RunCommand("ip route replace default via " + network + ".1 dev " + adapter);
    std::uint32_t address = 0;
    platform::TextToAddress((network + ".2").c_str(), &address);
    return Becomes("followed", [address] {
      const LockScope scope(&service.identityLock);
      return service.localAddress == address;
    });
  }
};

std::string LoadAndUnload(Bench& bench) {
  Unload();
  isArmed = true;
  const std::string loaded = Load();
  const std::string started = bench.Start();
  Unload();
  isArmed = false;
  Load();
  return loaded + " " + started;
}

std::string StartToStop(Bench& bench) {
  isArmed = true;
  std::string outcome = bench.Start();
  isArmed = false;
  if (outcome == "1") {
    bench.Connect();
    outcome += " " + bench.Ask("1");
    bench.scanner.reset();
  }
  isArmed = true;
  return outcome + " " + bench.Stop();
}

std::string SingleRequest(Bench& bench) {
  bench.StartAndRest();
  isArmed = true;
  bench.Connect();
  return bench.AndUntouched(bench.Ask("1"));
}

std::string PairedRequests(Bench& bench) {
  bench.StartAndRest();
  isArmed = true;
  bench.Connect();
  const std::string started = bench.Ask("start", "x-subevent : START\r\n");
  EventHeader header{EXCHANGE_PAIRED, SUBEVENT_START, "start", "2.00", {}};
  const std::string sent = AsLibrary([&header] { return QRNSendData(&header, "data", 4); });
  const bool heard = sent == "1" && bench.Comes([&bench] {
    return bench.scanner->Receive(LOOK_MS).find("POST") == 0;
  });
  const std::string ended = bench.Ask("end", "x-subevent : END\r\nx-parent-uid : start\r\n");
  const std::string all = started + " " + sent + (heard ? " heard " : " unheard ") + ended;
  return bench.AndUntouched(ended == "closed" ? ended : all);
}

std::string ExtraConnection(Bench& bench) {
  bench.Start();
  bench.Connect();
  EXPECT_EQ(bench.Ask("main"), "0001");
  EXPECT_TRUE(OthersComeToRest());
  std::unique_ptr<Scanner> main = std::move(bench.scanner);
  isArmed = true;
  bench.Connect();
  const std::string answer = "extra " + bench.Ask("1");
  bench.scanner.swap(main);
  return bench.AndUntouched(answer);
}

std::string Discovery(Bench& bench) {
  bench.StartAndRest();
  isArmed = true;
  const std::string first = bench.Discover();
  isArmed = false;
  return first + (first == "heard" ? "" : " " + bench.Discover());
}

std::string AddressChange(Bench& bench) {
  bench.StartAndRest();
  isArmed = true;
  const std::string first = bench.Follow("10.99.0", "quorin1");
  platform::SleepMilliseconds(60);  // discovery joins its group anew
  isArmed = false;
  const std::string back = bench.Follow("10.68.0", "quorin0");
  return first + " " + (back == "missed" ? back : bench.Follow("10.99.0", "quorin1"));
}

std::string WaitForAddress(Bench& bench) {
  RunCommand("ip link set quorin1 down; ip link set quorin0 down");
  isArmed = true;
  const std::string started = bench.Start();
  RunCommand("ip link set quorin0 up");
  const auto runs = [] { return IsServiceRunning() == 1; };
  return started == "1" ? "1 " + bench.Becomes("served", runs) : started;
}

const struct Scenario {
  const char* name;
  std::string (*run)(Bench& bench);
  const char* untouched;
  const char* failed;  // the outcome of at least one failure
} SCENARIOS[] = {
    {"load-unload", &LoadAndUnload, "1 1", "0 0"},
    {"start-stop", &StartToStop, "1 0001 1", "0 0"},
    {"request", &SingleRequest, "0001 0001", "3001 0001"},
    {"pair", &PairedRequests, "0001 1 heard 0001 0001", "3001 0 unheard 2002 0001"},
    {"extra", &ExtraConnection, "extra 2001 0001", "extra closed 0001"},
    {"discovery", &Discovery, "heard", "missed heard"},
    {"address-change", &AddressChange, "followed followed", "followed missed"},
    {"address-wait", &WaitForAddress, "1 served", "1 missed"},
};

// What failures of a function may lead to in a scenario: the first row that fits counts, and
// without one the scenario is untouched.
const struct {
  const char* where;
  const char* outcome;
  Effect upTo = NOTICED;
} RULES[] = {
    {"load-unload calloc", "0 0|1 [01]"},
    {"load-unload .*", "1 [01]"},
    {"start-stop poll", "0 0|1 (0001|closed) 1"},
    {"start-stop WaitSemaphore", "0 0|1 (0001|closed) [01]"},
    {"start-stop .*", "0 0|1 0001 1"},
    // A connection that cannot be set up, or whose queue cannot be used, is closed sooner or later.
    {"request (calloc|WaitSemaphore)", "(0001|3001|silent) 0001|((0001|silent) )?closed"},
    {"request pthread_create", "3001 0001|closed"},
    {"request accept4", "(0001|silent) 0001"},
    {"request poll", "0001 (0001|closed)|closed"},
    {"pair (calloc|WaitSemaphore)",
     "(0001|3001|silent) [01] (un)?heard (0001|2002|3001|silent) 0001|"
     "((0001|silent) [01] (un)?heard (0001|2002|3001|silent) )?closed"},
    {"pair pthread_create", "3001 0 unheard 2002 0001|0001 1 heard 3001 0001|closed"},
    {"pair accept4", "0001 1 heard 0001 0001|silent 0 unheard silent 0001"},
    {"pair poll", "0001 1 heard 0001 (0001|closed)|closed"},
    {"(request|pair) (recv|send)", "closed"},
    {"extra accept4", "extra (2001|silent) 0001"},
    {"extra (poll|WaitSemaphore)", "extra (0001|2001|closed|silent) (0001|closed)"},
    {"extra (recv|send)", "extra closed 0001", PASSING},  // it gets one receive and one send
    {"extra .*", "extra closed 0001"},
    {"discovery poll", "heard|missed missed"},
    {"discovery .*", "heard|missed heard"},
    {"address-change ArmAddressNotifier", "followed missed"},
    {"address-change .*", "(followed|missed) followed"},
    {"address-wait (ArmAddressNotifier|pipe2)", "1 served"},  // without waiting
    {"address-wait .*", "0|1 (served|missed)"},
};

std::int64_t EntriesOf(const char* folder) {
  const std::filesystem::directory_iterator entries(folder);
  return std::distance(begin(entries), end(entries));
}

// Nothing of a run may be left, and the service must be as good as new.
void CheckNothingIsLeft(Bench& bench, std::int64_t descriptors) {
  EXPECT_EQ(IsServiceRunning(), 0);
  bench.mayMiss = false;
  EXPECT_NE(bench.Becomes("one", [] { return EntriesOf("/proc/self/task") == 1; }), "missed");
  EXPECT_EQ(EntriesOf("/proc/self/fd"), descriptors);
  EXPECT_TRUE(__lsan_do_recoverable_leak_check == nullptr ||
              __lsan_do_recoverable_leak_check() == 0);
  EXPECT_EQ(bench.Start(), "1");
  bench.Connect();
  EXPECT_EQ(bench.Ask("after"), "0001");
  bench.scanner.reset();
  EXPECT_EQ(bench.Stop(), "1");
}

class Failures : public testing::TestWithParam<Scenario> {
 protected:
  void SetUp() override {
    ASSERT_TRUE(InPrivateNetwork());
    isSpared = true;
    RunCommand("ip address replace 10.99.0.2/24 dev quorin1");
    ASSERT_EQ(Load(), "1");
  }
  void TearDown() override { Unload(); }

  // One run; true when the failure was met.
  bool Run(Effect effect) {
    const Scenario& scenario = GetParam();
    const std::string label = std::string(scenario.name) + ", " + failing.function + " with " +
                              std::to_string(failing.error) + ", call " +
                              std::to_string(failing.number);
    SCOPED_TRACE(label);
    EndProcessAfter(DEADLINE_SECONDS, label.c_str());
    bench.mayMiss = effect == NOTICED;
    callCount = 0;
    failureCount = 0;
    const std::string outcome = scenario.run(bench);
    isArmed = false;
    const bool met = failureCount > 0;
    const auto fits = [&](const auto& rule) {
      return effect <= rule.upTo &&
             std::regex_match(scenario.name + (std::string(" ") + failing.function),
                              std::regex(rule.where));
    };
    const auto* rule = std::find_if(std::begin(RULES), std::end(RULES), fits);
    const char* expected = met && rule != std::end(RULES) ? rule->outcome : scenario.untouched;
    EXPECT_TRUE(std::regex_match(outcome, std::regex(expected))) << outcome;
    outcomes_.insert(outcome);
    bench.scanner.reset();
    bench.Stop();
    if (std::strncmp(scenario.name, "address", 7) == 0) {
      RunCommand(
          "ip link set quorin0 up && ip link set quorin1 up && "
          "ip route replace default via 10.68.0.1 dev quorin0");
    }
    CheckNothingIsLeft(bench, descriptors_);
    return met;
  }

  Bench bench;
  std::int64_t descriptors_ = EntriesOf("/proc/self/fd");
  std::set<std::string> outcomes_;
};

TEST_P(Failures, LeaveTheServiceAsGoodAsNew) {
  std::int32_t points = 0;
  for (const auto& way : WAYS) {
    std::istringstream functions(way.functions);
    for (std::string function; functions >> function;) {
      failing = FailingCall{function.c_str(), way.error, 1};
      for (; failing.number < MOST_CALLS && Run(way.effect); failing.number++) {
        points++;
      }
      if (failing.number > 1 && way.effect != PASSING) {
        failing.number = EVERY_CALL;
        points += Run(way.effect) ? 1 : 0;
      }
    }
  }
  printf("failure points: %s %d\n", GetParam().name, points);
  EXPECT_GT(points, 0);
  EXPECT_EQ(outcomes_.count(GetParam().failed), 1U);
}

// The framework takes no dashes.
INSTANTIATE_TEST_SUITE_P(Scenarios, Failures, testing::ValuesIn(SCENARIOS), [](const auto& test) {
  return std::regex_replace(test.param.name, std::regex("-"), "_");
});

}  // namespace
}  // namespace zvqrn::test
