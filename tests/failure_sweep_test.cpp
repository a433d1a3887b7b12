// The service while the system fails it: each scenario runs again and again, each time with the
// next call of one function failing, until it runs untouched; and once with every call failing.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <memory>
#include <regex>
#include <set>

#include "base/service_state.h"
#include "platform/clock.h"
#include "platform/entry.h"
#include "platform/thread.h"
#include "support/failing_calls.h"
#include "support/host.h"
#include "support/messages.h"
#include "support/scanner.h"
#include "support/slp_scanner.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#else
static int __lsan_do_recoverable_leak_check() {
  return 0;
}
#endif

namespace zvqrn::test {
namespace {

// What a failure does to a scenario: it may change the outcome, or must not; what is PASSING must
// not, and never fails for good.
enum Effect { NOTICED, UNNOTICED, PASSING };
struct Way {
  const char* function;
  int error;
  Effect effect;
};
const Way WAYS[] = {
    {"calloc", ENOMEM, NOTICED},
    {"pthread_create", EAGAIN, NOTICED},
    {"socket", EMFILE, NOTICED},
    {"bind", EADDRINUSE, NOTICED},
    {"listen", EADDRINUSE, NOTICED},
    {"accept4", ECONNABORTED, NOTICED},
    {"getsockname", ENOBUFS, NOTICED},
    {"setsockopt", ENODEV, NOTICED},
    {"gethostname", EFAULT, NOTICED},
    {"getifaddrs", ENOBUFS, NOTICED},
    {"if_nametoindex", ENXIO, NOTICED},
    {"fopen", EMFILE, UNNOTICED},
    {"pipe2", EMFILE, NOTICED},
    {"eventfd", EMFILE, UNNOTICED},
    {"dlopen", REFUSED, UNNOTICED},
    {"poll", ENOMEM, NOTICED},
    {"poll", EINTR, PASSING},
    {"recv", ECONNRESET, NOTICED},
    {"recv", EINTR, PASSING},
    {"recv", EAGAIN, PASSING},
    {"recv", ONE_BYTE_ONLY, UNNOTICED},
    {"send", EPIPE, NOTICED},
    {"send", EINTR, PASSING},
    {"send", EAGAIN, PASSING},
    {"send", ONE_BYTE_ONLY, UNNOTICED},
    {"recvfrom", ENOMEM, NOTICED},
    {"recvfrom", EINTR, PASSING},
    {"sendto", ENOBUFS, NOTICED},
    {"MakeAddressNotifier", REFUSED, NOTICED},
    {"ArmAddressNotifier", REFUSED, NOTICED},
    {"WaitSemaphore", REFUSED, NOTICED},
    {"WaitEvent", REFUSED, NOTICED},
    {"WaitEitherEvent", REFUSED, NOTICED},
};

// Longer than any scenario has calls of one function.
constexpr std::int32_t MOST_CALLS = 80;
bool waysMet[std::size(WAYS)];

constexpr unsigned DEADLINE_SECONDS = 30;

char label[120];

void EndLateRun(int /*signal*/) {
  for (const char* text : {"not ended in time: ", static_cast<const char*>(label), "\n"}) {
    EXPECT_GE(write(STDERR_FILENO, text, strlen(text)), 0);
  }
  abort();
}

std::int32_t QRN_EXPORT KnowsEveryScanner(const char* /*product*/, char* driver) {
  memcpy(driver, "Driver", 7);
  return 1;
}

bool LoadLibrary() {
  service.unloading.store(0);
  const bool loaded = AsLibrary([] { return platform::OnLibraryLoad(); });
  service.getTwainName = &KnowsEveryScanner;
  return loaded;
}

bool UnloadLibrary() {
  return AsLibrary([] {
    platform::OnLibraryUnload(false);
    return true;
  });
}

// What a scenario works with.
struct Bench {
  Host host{host::ServiceLibrary{nullptr, &QRNStartService, &QRNStopService, &QRNSendData,
                                 &QRNGetPCName, &QRNSetPCName}};
  SlpScanner slpScanner{"127.0.0.9"};
  std::unique_ptr<Scanner> scanner;
  std::int32_t patience = PATIENCE_MS;
  int xid = 0;

  std::string Start() {
    return std::to_string(AsLibrary([this] { return host.Start(); }));
  }
  std::string Stop() {
    return std::to_string(AsLibrary([this] { return host.Stop(); }));
  }
  void Connect() { scanner = std::make_unique<Scanner>(Scanner::MAY_BE_GONE); }

  // Sends a request and gives the status of its answer.
  std::string Ask(Scanner* from, const std::string& uid, const std::string& headers = "") const {
    from->Send(Request(Identity("2.00", uid) + headers, DOCUMENT_V2));
    for (;;) {
      const std::string answer = from->Receive(patience);
      if (answer.empty()) {
        return from->HearsNothing(0) ? "silent" : "closed";
      }
      if (answer.find("\r\nx-uid : " + uid + "\r\n") != std::string::npos) {
        return answer.substr(answer.find("x-status : ") + 11, 4);
      }
    }
  }
  std::string Ask(const std::string& uid, const std::string& headers = "") {
    return Ask(scanner.get(), uid, headers);
  }

  // The same when nothing fails any more; a connection that was closed stays closed.
  std::string AskUntouched(const std::string& before) {
    PauseFailure();
    if (before == "closed") {
      return before;
    }
    patience = PATIENCE_MS;
    return before + " " + Ask("untouched");
  }

  std::string Discover() {
    slpScanner.Send(Encode({++xid, "any scanner"}), "127.0.0.1");
    const std::int64_t deadline = platform::MonotonicMilliseconds() + patience;
    for (std::int64_t left = patience; left > 0;
         left = deadline - platform::MonotonicMilliseconds()) {
      const std::string reply = slpScanner.Receive(static_cast<std::int32_t>(left));
      if (reply.size() > 12 && ((reply[10] & 0xFF) << 8 | (reply[11] & 0xFF)) == xid) {
        return "heard";
      }
    }
    return "silent";
  }

  // Waits for what the service is to become.
  template <typename Condition>
  std::string Becomes(const char* word, Condition condition) const {
    const std::int64_t deadline = platform::MonotonicMilliseconds() + patience;
    while (!condition() && platform::MonotonicMilliseconds() < deadline) {
      platform::SleepMilliseconds(2);
    }
    return condition() ? word : "missed";
  }
};

// The default route leads over one of two adapters.
std::string Follow(Bench* bench, const char* network, const char* adapter) {
  RunCommand(std::string("ip route replace default via ") + network + ".1 dev " + adapter);
  std::uint32_t address = 0;
  platform::TextToAddress((std::string(network) + ".2").c_str(), &address);
  return bench->Becomes("followed", [address] {
    const LockScope scope(&service.identityLock);
    return service.localAddress == address;
  });
}

void Running(Bench* bench) {
  EXPECT_EQ(bench->Start(), "1");
}

std::string LoadAndUnload(Bench* bench) {
  const bool loaded = LoadLibrary();
  const std::string started = bench->Start();
  UnloadLibrary();
  return (loaded ? "1 " : "0 ") + started;
}

std::string StartToStop(Bench* bench) {
  std::string outcome = bench->Start();
  PauseFailure();
  if (outcome == "1") {
    bench->Connect();
    outcome += " " + bench->Ask("1");
    bench->scanner.reset();
  }
  ResumeFailure();
  return outcome + " " + bench->Stop();
}

std::string SingleRequest(Bench* bench) {
  bench->Connect();
  return bench->AskUntouched(bench->Ask("1"));
}

std::string PairedRequests(Bench* bench) {
  bench->Connect();
  const std::string started = bench->Ask("start", "x-subevent : START\r\n");
  EventHeader header{};
  strcpy(header.uid, "start");
  strcpy(header.protocolVersion, "2.00");
  const std::int32_t sent = AsLibrary([&header] { return QRNSendData(&header, "data", 4); });
  const bool heard = sent == 1 && bench->scanner->Receive(bench->patience).find("POST") == 0;
  const std::string ended = bench->Ask("end", "x-subevent : END\r\nx-parent-uid : start\r\n");
  return bench->AskUntouched(ended == "closed" ? ended
                                               : started + " " + std::to_string(sent) +
                                                     (heard ? " heard " : " unheard ") + ended);
}

std::string ExtraConnection(Bench* bench) {
  Scanner extra(Scanner::MAY_BE_GONE);
  return bench->AskUntouched("extra " + bench->Ask(&extra, "1"));
}

std::string Discovery(Bench* bench) {
  const std::string first = bench->Discover();
  PauseFailure();
  bench->patience = PATIENCE_MS;
  return first + (first == "heard" ? "" : " " + bench->Discover());
}

std::string AddressChange(Bench* bench) {
  const std::string first = Follow(bench, "10.99.0", "quorin1");
  // Discovery joins its group anew meanwhile.
  platform::SleepMilliseconds(60);
  PauseFailure();
  bench->patience = 2000;
  const std::string back = Follow(bench, "10.68.0", "quorin0");
  return first + " " + (back == "missed" ? back : Follow(bench, "10.99.0", "quorin1"));
}

std::string WaitForAddress(Bench* bench) {
  const std::string started = bench->Start();
  RunCommand("ip link set quorin0 up");
  return started == "1" ? "1 " + bench->Becomes("served", [] { return IsServiceRunning() == 1; })
                        : started;
}

struct Scenario {
  const char* name;
  void (*prepare)(Bench* bench);
  std::string (*run)(Bench* bench);
  const char* untouched;
  const char* failed;  // the outcome of at least one failure
};
const Scenario SCENARIOS[] = {
    {"load-unload", [](Bench* /*bench*/) { UnloadLibrary(); }, &LoadAndUnload, "1 1", "0 0"},
    {"start-stop", [](Bench* /*bench*/) {}, &StartToStop, "1 0001 1", "0 0"},
    {"request", &Running, &SingleRequest, "0001 0001", "3001 0001"},
    {"start-data-end", &Running, &PairedRequests, "0001 1 heard 0001 0001",
     "3001 0 unheard 2002 0001"},
    {"extra-connection",
     [](Bench* bench) {
       Running(bench);
       bench->Connect();
       EXPECT_EQ(bench->Ask("main"), "0001");
     },
     &ExtraConnection, "extra 2001 0001", "extra closed 0001"},
    {"discovery", &Running, &Discovery, "heard", "silent heard"},
    {"address-change", &Running, &AddressChange, "followed followed", "followed missed"},
    {"address-wait",
     [](Bench* /*bench*/) { RunCommand("ip link set quorin1 down; ip link set quorin0 down"); },
     &WaitForAddress, "1 served", "1 missed"},
};

// What a failure may lead to, where it may change the outcome; the first row that fits counts.
struct Rule {
  const char* scenario;
  const char* function;  // empty: any
  const char* outcome;
  Effect upTo = NOTICED;
};
const Rule RULES[] = {
    {"load-unload", "calloc", "0 0|1 [01]"},
    {"load-unload", "", "1 [01]"},
    {"start-stop", "poll", "0 0|1 (0001|closed) 1"},
    {"start-stop", "WaitSemaphore", "0 0|1 (0001|closed) [01]"},
    {"start-stop", "", "0 0|1 0001 1"},
    {"request", "calloc", "(0001|3001|silent) 0001|closed"},
    {"request", "WaitSemaphore", "(0001|3001|silent) 0001|closed"},
    {"request", "pthread_create", "3001 0001|closed"},
    {"request", "accept4", "(0001|silent) 0001"},
    {"request", "poll", "0001 0001|closed"},
    {"request", "recv", "closed"},
    {"request", "send", "closed"},
    {"start-data-end", "calloc",
     "(0001|3001|silent) [01] (un)?heard (0001|2002|3001|silent) 0001|closed"},
    {"start-data-end", "WaitSemaphore",
     "(0001|3001|silent) [01] (un)?heard (0001|2002|3001|silent) 0001|closed"},
    {"start-data-end", "pthread_create", "3001 0 unheard 2002 0001|0001 1 heard 3001 0001|closed"},
    {"start-data-end", "accept4", "0001 1 heard 0001 0001|silent 0 unheard silent 0001"},
    {"start-data-end", "poll", "0001 1 heard 0001 0001|closed"},
    {"start-data-end", "recv", "closed"},
    {"start-data-end", "send", "closed"},
    {"extra-connection", "accept4", "extra (2001|silent) 0001"},
    {"extra-connection", "poll", "extra (0001|2001|closed|silent) (0001|closed)"},
    {"extra-connection", "WaitSemaphore", "extra (2001|closed|silent) (0001|closed)"},
    // It looks at one receive and makes one send.
    {"extra-connection", "recv", "extra closed 0001", PASSING},
    {"extra-connection", "send", "extra closed 0001", PASSING},
    {"extra-connection", "", "extra closed 0001"},
    {"discovery", "poll", "heard|silent silent"},
    {"discovery", "", "heard|silent heard"},
    {"address-change", "ArmAddressNotifier", "followed missed"},
    {"address-change", "", "(followed|missed) followed"},
    {"address-wait", "", "0|1 (served|missed)"},
};

// The outcome that a way of failing must lead to.
const char* ExpectedOutcome(const Scenario& scenario, const Way& way) {
  for (const Rule& rule : RULES) {
    if (strcmp(rule.scenario, scenario.name) == 0 && way.effect <= rule.upTo &&
        (*rule.function == '\0' || strcmp(rule.function, way.function) == 0)) {
      return rule.outcome;
    }
  }
  return scenario.untouched;
}

std::size_t EntriesOf(const char* folder) {
  const std::filesystem::directory_iterator entries(folder);
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

// Nothing of a run may be left, and the service must be as good as new.
void CheckNothingIsLeft(Bench* bench, std::size_t descriptors) {
  EXPECT_EQ(IsServiceRunning(), 0);
  EXPECT_EQ(platform::WaitSemaphore(service.lifecycleTurn, 0), platform::SYNC_SIGNALLED);
  EXPECT_TRUE(platform::SignalSemaphore(service.lifecycleTurn));
  for (const ServiceLock* lock :
       {&service.identityLock, &service.listenerStateLock, &service.discoveryStateLock,
        &service.connectionStateLock, &service.extraConnectionSlots, &service.jobTableLock,
        &service.sendQueueLock, &service.deliveryListLock, &service.discoveryTableLock}) {
    EXPECT_EQ(lock->semaphore.load(), nullptr);
  }
  bench->patience = PATIENCE_MS;
  EXPECT_EQ(bench->Becomes("1 thread", [] { return EntriesOf("/proc/self/task") == 1; }),
            "1 thread");
  EXPECT_EQ(EntriesOf("/proc/self/fd"), descriptors);
  EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0);
  EXPECT_EQ(bench->Start(), "1");
  bench->Connect();
  EXPECT_EQ(bench->Ask("after"), "0001");
  bench->scanner.reset();
  EXPECT_EQ(bench->Stop(), "1");
}

class Failures : public testing::TestWithParam<Scenario> {
 protected:
  void SetUp() override {
    ASSERT_TRUE(InPrivateNetwork());
    isSpared = true;
    signal(SIGALRM, &EndLateRun);
    RunCommand("ip address replace 10.99.0.2/24 dev quorin1");
    ASSERT_TRUE(LoadLibrary());
  }
  void TearDown() override {
    alarm(0);
    UnloadLibrary();
  }

  // A way that no scenario meets would test nothing.
  static void TearDownTestSuite() {
    const auto* suite = testing::UnitTest::GetInstance()->current_test_suite();
    for (std::size_t i = 0; suite->test_to_run_count() == static_cast<int>(std::size(SCENARIOS)) &&
                            i < std::size(WAYS);
         i++) {
      EXPECT_TRUE(waysMet[i]) << WAYS[i].function << " with " << WAYS[i].error;
    }
  }

  // One run; true when the failure was met.
  bool Run(const Way& way, std::int32_t number) {
    const Scenario& scenario = GetParam();
    snprintf(label, sizeof label, "%s, %s with %d, call %d", scenario.name, way.function, way.error,
             number);
    SCOPED_TRACE(label);
    alarm(DEADLINE_SECONDS);
    scenario.prepare(&bench);
    // What may fail to come is not waited for long.
    bench.patience = way.effect == NOTICED ? 300 : PATIENCE_MS;
    ArmFailure(way.function, way.error, number);
    const std::string outcome = scenario.run(&bench);
    PauseFailure();
    const bool met = FailedCalls() > 0;
    const char* expected = met ? ExpectedOutcome(scenario, way) : scenario.untouched;
    EXPECT_TRUE(std::regex_match(outcome, std::regex(expected))) << outcome;
    outcomes_.insert(outcome);
    bench.scanner.reset();
    bench.Stop();
    if (service.lifecycleTurn == nullptr) {
      EXPECT_TRUE(LoadLibrary());
    }
    if (strncmp(scenario.name, "address", 7) == 0) {
      RunCommand(
          "ip link set quorin0 up && ip link set quorin1 up && "
          "ip route replace default via 10.68.0.1 dev quorin0");
    }
    CheckNothingIsLeft(&bench, descriptors_);
    return met;
  }

  Bench bench;
  std::size_t descriptors_ = EntriesOf("/proc/self/fd");
  std::set<std::string> outcomes_;
};

TEST_P(Failures, LeaveTheServiceAsGoodAsNew) {
  std::int32_t points = 0;
  for (const Way& way : WAYS) {
    std::int32_t number = 1;
    while (number < MOST_CALLS && Run(way, number)) {
      number++;
    }
    points += number - 1;
    if (number > 1 && way.effect != PASSING) {
      points += Run(way, EVERY_CALL) ? 1 : 0;
    }
    waysMet[&way - WAYS] = waysMet[&way - WAYS] || number > 1;
  }
  printf("failure points: %s %d\n", GetParam().name, points);
  EXPECT_GT(points, 0);
  EXPECT_EQ(outcomes_.count(GetParam().failed), 1U);
}

std::string NameOf(const testing::TestParamInfo<Scenario>& scenario) {
  std::string name = scenario.param.name;
  name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
  return name;
}
INSTANTIATE_TEST_SUITE_P(Scenarios, Failures, testing::ValuesIn(SCENARIOS), NameOf);

}  // namespace
}  // namespace zvqrn::test
