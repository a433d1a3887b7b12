// Start and stop, and the exports in every state.

#include <gtest/gtest.h>
#if !defined(_WIN32)
#include <fcntl.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <atomic>
#include <csignal>
#include <filesystem>
#include <set>
#include <string>
#include <thread>

#include "platform/clock.h"
#include "platform/socket.h"
#include "platform/thread.h"
#include "support/host.h"
#include "support/messages.h"
#include "support/patience.h"
#include "support/process.h"
#include "support/scanner.h"
#include "support/slp_scanner.h"

namespace zvqrn::test {
namespace {

const std::string START_LINE = "x-subevent : START\r\n";

std::int32_t QRN_CALLBACK NoFilter(const PeerDescription*, void*) {
  return 0;
}
std::int32_t QRN_CALLBACK NoEvent(EventHeader*, std::int32_t, const void*, std::int32_t, void*) {
  return 1;
}
std::int32_t QRN_CALLBACK NoStatus(std::int32_t, std::int32_t, const char*, void*) {
  return 0;
}

TEST(Lifecycle, GivesResultsInEveryState) {
  Host host(LibraryPath());
  EventHeader header{};
  std::int32_t length = 0;
  const auto expectStopped = [&] {
    EXPECT_EQ(host.Stop(), 0);
    EXPECT_EQ(host.library.getPcName(nullptr, &length), 0);
    EXPECT_EQ(host.library.setPcName("ABC", 3), 0);
    EXPECT_EQ(host.library.sendData(&header, "x", 1), 0);
  };
  expectStopped();
  EXPECT_EQ(host.library.startService(nullptr, NoEvent, NoStatus, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(host.library.startService(NoFilter, nullptr, NoStatus, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(host.library.startService(NoFilter, NoEvent, nullptr, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(host.library.startService(NoFilter, NoEvent, NoStatus, nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(host.Start(), 0) << "it runs already";
  EXPECT_EQ(host.library.sendData(&header, "x", 1), 0) << "nobody is connected";
  EXPECT_EQ(host.Stop(), 1);
  expectStopped();
  EXPECT_EQ(host.StatusTexts(), "");
}

TEST(Lifecycle, KeepsTheNameUntilTheStop) {
  Host host(LibraryPath());
  ASSERT_EQ(host.Start(), 1);
  std::int32_t length = 0;
  EXPECT_EQ(host.library.getPcName(nullptr, nullptr), 0);
  ASSERT_EQ(host.library.getPcName(nullptr, &length), 1);
  std::string own(static_cast<std::size_t>(length), '?');
  EXPECT_EQ(host.library.getPcName(own.data(), &length), 1);
  EXPECT_GT(length, 0);
  EXPECT_EQ(own.find_first_of("abcdefghijklmnopqrstuvwxyz.?"), std::string::npos) << own;
  std::int32_t tooSmall = length - 1;
  char untouched[16] = "unchanged";
  EXPECT_EQ(host.library.getPcName(untouched, &tooSmall), QRN_BUFFER_TOO_SMALL);
  EXPECT_EQ(tooSmall, length);
  EXPECT_STREQ(untouched, "unchanged");

  const struct {
    const char* name;
    std::int32_t length;
    std::int32_t result;
  } names[] = {{"ABC", 0, 0},   {"1234567890123456", 16, 0}, {"ABC", -1, 0},
               {nullptr, 3, 0}, {"123456789012345", 15, 1},  {"A\0B", 3, 1},
               {"ABCD", 3, 1}};
  for (const auto& n : names) {
    EXPECT_EQ(host.library.setPcName(n.name, n.length), n.result) << n.length;
  }
  char name[15] = {};
  length = 15;
  EXPECT_EQ(host.library.getPcName(name, &length), 1);
  EXPECT_EQ(std::string(name, static_cast<std::size_t>(length)), "ABC");
  EXPECT_EQ(host.Stop(), 1);
  ASSERT_EQ(host.Start(), 1);
  std::string again(15, '?');
  length = 15;
  EXPECT_EQ(host.library.getPcName(again.data(), &length), 1);
  EXPECT_EQ(again.substr(0, static_cast<std::size_t>(length)), own);
  EXPECT_EQ(host.Stop(), 1);
}

TEST(Lifecycle, FailsAStartWhosePortIsTaken) {
#if defined(_WIN32)
  // Wine cannot cancel a notification: its event's handle stays.
  constexpr std::ptrdiff_t LEFT_BY_A_START = 1;
#else
  constexpr std::ptrdiff_t LEFT_BY_A_START = 0;
#endif
  const platform::SocketHandle taken = platform::OpenTcpSocket();
  ASSERT_TRUE(platform::BindListeningPort(taken, 2968));
  ASSERT_TRUE(platform::StartListening(taken, 1));
  Host host(LibraryPath());
  const std::ptrdiff_t threads = Threads();
  const std::ptrdiff_t descriptors = Handles();
  EXPECT_EQ(host.Start(), 0);
  EXPECT_EQ(host.Stop(), 0);
  // The system counts a thread a moment longer than those do who wait for its end.
  EXPECT_TRUE(Eventually([&] { return Threads() <= threads; }));
  EXPECT_LE(Handles(), descriptors + LEFT_BY_A_START);
  platform::CloseSocket(taken);
  const std::ptrdiff_t descriptorsWithout = Handles();
  EXPECT_EQ(host.Start(), 1) << "the failed start has undone itself";
  EXPECT_EQ(host.Stop(), 1);
  EXPECT_TRUE(Eventually([&] { return Threads() <= threads; }));
  EXPECT_LE(Handles(), descriptorsWithout + LEFT_BY_A_START);
}

// The answers that are due at a stop still reach the scanner, then its connection ends.
TEST(Lifecycle, SendsWhatIsDueBeforeItStops) {
  Host host(LibraryPath());
  std::atomic<bool> release{false};
  host.verdict = [&](EventHeader*) {
    while (!release.load()) {
      platform::SleepMilliseconds(1);
    }
    return QRN_RESPONSE_OK;
  };
  ASSERT_EQ(host.Start(), 1);
  Scanner scanner;
  Scanner extra;
  scanner.Send(Request(Identity("2.00", "due"), DOCUMENT_V2));
  EXPECT_TRUE(host.WaitForDeliveries(1));
  std::thread stopper([&] { EXPECT_EQ(host.Stop(), 1); });
  EXPECT_TRUE(extra.SeesClose()) << "extra connections do not wait";
  // Every thread has seen the stop, and the callback holds it up.  Requests are answered all the
  // same, each in its own way, and neither the host nor the utility library hears of one.
  std::string unknownScanner = DOCUMENT_V2;
  unknownScanner.replace(unknownScanner.find("XS-200"), 6, "XS-999");
  const struct {
    const char* version;
    const char* headers;
    const char* body;
    const char* answer;
  } late[] = {
      {"1.00", "", DOCUMENT_V1, "x-uid : late\r\nx-status : 2001\r\n\r\n"},
      {"2.00", "x-subevent : START\r\n", DOCUMENT_V2, "x-uid : late\r\nx-status : 2001\r\n\r\n"},
      {"2.00", "x-subevent : END\r\nx-parent-uid : late\r\n", DOCUMENT_V2,
       "x-uid : late\r\nx-parent-uid : late\r\nx-status : 2001\r\n\r\n"},
      {"2.00", "", unknownScanner.c_str(), "x-uid : late\r\nx-status : 2001\r\n\r\n"},
      {"2.00", "", "no document", "x-uid : late\r\nx-status : 2003\r\n\r\n"},
  };
  for (const auto& l : late) {
    scanner.Send(Request(Identity(l.version, "late") + l.headers, l.body));
    const std::string answer = scanner.Receive();
    EXPECT_NE(answer.find(l.answer), std::string::npos) << l.answer << "is not in\n" << answer;
  }
  // A scanner that goes on sending does not lose what is due by it.
  std::atomic<bool> ended{false};
  std::thread sending([&] {
    while (!ended.load() && scanner.Send("rest")) {
      platform::SleepMilliseconds(1);
    }
  });
  release = true;
  EXPECT_NE(scanner.Receive().find("x-uid : due\r\nx-status : 0001\r\n"), std::string::npos);
  EXPECT_TRUE(scanner.SeesEnd());
  ended = true;
  sending.join();
  stopper.join();
  EXPECT_EQ(host.Deliveries().size(), 1U);
}

// A scanner that has ended its own side gets its answer from a stop, whichever came first.
TEST(Lifecycle, SendsWhatIsDueToAScannerThatIsDone) {
  for (const bool stopFirst : {false, true}) {
    Host host(LibraryPath());
    std::atomic<bool> release{false};
    host.verdict = [&](EventHeader*) {
      while (!release.load()) {
        platform::SleepMilliseconds(1);
      }
      return QRN_RESPONSE_OK;
    };
    ASSERT_EQ(host.Start(), 1);
    Scanner scanner;
    Scanner extra;
    scanner.Send(Request(Identity("2.00", "due"), DOCUMENT_V2));
    ASSERT_TRUE(host.WaitForDeliveries(1));
    const auto endSending = [&] {
      scanner.EndSending();
      EXPECT_TRUE(scanner.HearsNothing(100));
    };
    if (!stopFirst) {
      endSending();
    }
    std::thread stopper([&] { EXPECT_EQ(host.Stop(), 1); });
    EXPECT_TRUE(extra.SeesClose());
    if (stopFirst) {
      endSending();
    }
    release = true;
    EXPECT_NE(scanner.Receive().find("x-uid : due\r\n"), std::string::npos) << stopFirst;
    EXPECT_TRUE(scanner.SeesEnd());
    stopper.join();
  }
}

#if !defined(_WIN32)  // handles are no small numbers there, and a name has no dots

// The computer's name of the thread's own namespace, by which a service is started on it.
std::string NameOfPcCalled(const std::string& hostName) {
  std::string name(15, '\0');
  std::thread([&] {
    ASSERT_EQ(unshare(CLONE_NEWUTS), 0);
    ASSERT_EQ(sethostname(hostName.data(), hostName.size()), 0);
    Host host(LibraryPath());
    ASSERT_EQ(host.Start(), 1);
    auto length = static_cast<std::int32_t>(name.size());
    EXPECT_EQ(host.library.getPcName(name.data(), &length), 1);
    name.resize(static_cast<std::size_t>(length));
    EXPECT_EQ(host.Stop(), 1);
  }).join();
  return name;
}

TEST(Lifecycle, TakesTheHostNamesFirstLabel) {
  EXPECT_EQ(NameOfPcCalled("azure-desk.office.example"), "AZURE-DESK");
  EXPECT_EQ(NameOfPcCalled("sixteen-letters-and.more"), "SIXTEEN-LETTERS");
}

// A host may have closed its standard input: whatever the library opens next gets that descriptor.
TEST(Lifecycle, MayGetDescriptor0) {
  enum Moment { BEFORE_THE_START, BEFORE_A_CONNECTION, BEFORE_A_REPLY };
  const int input = fcntl(0, F_DUPFD_CLOEXEC, 3);
  std::uint32_t address = 0;
  ASSERT_TRUE(platform::TextToAddress(PC_ADDRESS, &address));
  const std::string request = Request(Identity("2.00", "1"), DOCUMENT_V2);
  for (const Moment moment : {BEFORE_THE_START, BEFORE_A_CONNECTION, BEFORE_A_REPLY}) {
    const auto closeAt = [moment](Moment now) { return now == moment && close(0) == 0; };
    Host host(LibraryPath());
    SlpScanner searching;
    const platform::SocketHandle socket = platform::OpenTcpSocket();
    closeAt(BEFORE_THE_START);
    EXPECT_EQ(host.Start(), 1);
    closeAt(BEFORE_A_CONNECTION);
    EXPECT_EQ(platform::ConnectTo(socket, address, 2968, PATIENCE_MS), platform::CONNECT_DONE);
    platform::SendBytes(socket, request.data(), static_cast<std::int32_t>(request.size()));
    platform::WaitReadable(socket, PATIENCE_MS);
    char answer[1000];
    EXPECT_GT(platform::ReceiveBytes(socket, answer, sizeof answer), 0) << moment;
    closeAt(BEFORE_A_REPLY);
    EXPECT_NE(searching.Ask(PC_ADDRESS), "") << moment;
    EXPECT_EQ(host.Stop(), 1);
    platform::CloseSocket(socket);
    dup2(input, 0);
  }
  close(input);
}

// The descriptors that a program started now would get.
std::set<std::string> Inherited() {
  std::set<std::string> inherited;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const int flags = fcntl(std::stoi(entry.path().filename()), F_GETFD);
    if (flags >= 0 && (flags & FD_CLOEXEC) == 0) {
      inherited.insert(entry.path().filename().string() + " " +
                       std::filesystem::read_symlink(entry.path()).string());
    }
  }
  return inherited;
}

TEST(Lifecycle, LeavesNoDescriptorToOtherPrograms) {
  Host host(LibraryPath());
  const std::set<std::string> before = Inherited();
  const std::ptrdiff_t descriptors = Handles();
  EXPECT_EQ(host.Start(), 1);
  SlpScanner searching;
  EXPECT_NE(searching.Ask(PC_ADDRESS), "");
  Scanner main;
  Scanner extra;
  main.Send(Request(Identity("2.00", "1"), DOCUMENT_V2));
  EXPECT_NE(main.Receive(), "");
  EXPECT_TRUE(extra.HearsNothing(300)) << "accepted, and the search's burst goes on";
  EXPECT_GT(Handles(), descriptors + 5);
  EXPECT_EQ(Inherited(), before);
  EXPECT_EQ(host.Stop(), 1);
}

std::atomic<std::int32_t> signalsHeard{0};

// A signal of the host's interrupts the wait of each thread that does not block it: here its own,
// the watcher's and the main connection's.  One that the host's thread blocks stays its own.
TEST(Lifecycle, GoesOnAfterASignal) {
  Host host(LibraryPath());
  sigset_t own;
  sigemptyset(&own);
  sigaddset(&own, SIGUSR2);
  pthread_sigmask(SIG_BLOCK, &own, nullptr);
  EXPECT_EQ(host.Start(), 1);
  for (const int signal : {SIGUSR1, SIGUSR2}) {
    std::signal(signal, [](int) { signalsHeard++; });
  }
  Scanner scanner;
  for (int i = 0; i < 2; i++) {
    scanner.Send(Request(Identity("2.00", "1"), DOCUMENT_V2));
    EXPECT_NE(scanner.Receive(), "") << i;
    EXPECT_TRUE(OthersComeToRest());
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
      syscall(SYS_tgkill, getpid(), std::stoi(thread.path().filename()), SIGUSR1);
    }
    EXPECT_TRUE(Eventually([&] { return signalsHeard.load() >= 3 * (i + 1); }));
  }
  kill(getpid(), SIGUSR2);
  platform::SleepMilliseconds(100);
  sigset_t pending;
  sigpending(&pending);
  EXPECT_EQ(sigismember(&pending, SIGUSR2), 1);
  EXPECT_EQ(host.Stop(), 1);
  pthread_sigmask(SIG_UNBLOCK, &own, nullptr);
  for (const int signal : {SIGUSR1, SIGUSR2}) {
    std::signal(signal, SIG_DFL);
  }
}

#endif

// What start, stop, the name's two and the data's function give, a digit each.
std::int32_t ResultsOfExports(Host* host, EventHeader request) {
  std::int32_t length = 0;
  return host->Start() * 10000 + host->Stop() * 1000 +
         host->library.getPcName(nullptr, &length) * 100 + host->library.setPcName("X", 1) * 10 +
         host->library.sendData(&request, "x", 1);
}

#if !defined(_WIN32)  // nothing forks there

// Runs in a child of this process; gives its exit code, or -1 when it has not ended in time.
template <typename Action>
int InChild(Action action) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(PATIENCE_MS / 1000);
    _exit(action());
  }
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// What the exports give in a child, which then unloads the library.
int ResultsInChild(Host* host) {
  return InChild([host] {
    const std::int32_t results = ResultsOfExports(host, EventHeader{});
    host->Unload();
    return results;
  });
}

// A process that the host forks while the service runs has none; it does not keep that of its
// parent from stopping, ending its connections and starting again.
TEST(MisbehavingHost, MayForkWhileTheServiceRuns) {
  Host host(LibraryPath());
  ASSERT_EQ(host.Start(), 1);
  EXPECT_EQ(ResultsInChild(&host), 0);
  Scanner scanner;
  scanner.Send(Request(Identity("2.00", "1"), DOCUMENT_V2));
  EXPECT_NE(scanner.Receive(), "");
  const pid_t worker = fork();
  if (worker == 0) {
    alarm(60);
    pause();
    _exit(0);
  }
  const std::int64_t begin = platform::MonotonicMilliseconds();
  EXPECT_EQ(host.Stop(), 1);
  EXPECT_LT(platform::MonotonicMilliseconds() - begin, PATIENCE_MS);
  EXPECT_TRUE(scanner.SeesClose());
  EXPECT_EQ(host.Start(), 1);
  EXPECT_EQ(host.Stop(), 1);
  EXPECT_EQ(kill(worker, SIGKILL), 0);
  EXPECT_EQ(waitpid(worker, nullptr, 0), worker);
  EXPECT_EQ(InChild([&host] { return host.Start() * 10 + host.Stop(); }), 11)
      << "forked without a service, as a daemon is";
}

#endif

TEST(MisbehavingHost, GetsTheResultsOfEachCallback) {
  Host host(LibraryPath());
  std::atomic<std::int32_t> inEvent{-1};
  std::atomic<std::int32_t> inFilter{-1};
  std::atomic<std::int32_t> inStatus{-1};
  host.verdict = [&](EventHeader* header) {
    inEvent = ResultsOfExports(&host, *header);
    return QRN_RESPONSE_OK;
  };
  host.filter = [&](const PeerDescription*) {
    inFilter = ResultsOfExports(&host, EventHeader{});
    return 1;
  };
  std::atomic<std::int32_t> inChild{-1};
  host.onStatus = [&] {
#if !defined(_WIN32)
    inChild = ResultsInChild(&host);  // its copy of a lock stays taken
#endif
    inStatus = ResultsOfExports(&host, EventHeader{});
  };
  ASSERT_EQ(host.Start(), 1);
  Scanner scanner;
  scanner.Send(Request(Identity("2.00", "1") + START_LINE, DOCUMENT_V2));
  EXPECT_FALSE(scanner.Receive().empty() || scanner.Receive().empty()) << "the data, the answer";
  EXPECT_EQ(inEvent.load(), 111);
  SlpScanner searching;
  searching.Send(Encode({1, "XS-200"}));
  EXPECT_NE(searching.Receive(PATIENCE_MS), "");
  EXPECT_EQ(inFilter.load(), 110);
#if !defined(_WIN32)  // Wine tells nobody of changed addresses
  RunCommand("ip address replace 10.68.0.99/24 dev quorin0");
  EXPECT_TRUE(Eventually([&] { return inStatus.load() >= 0; }));
  EXPECT_EQ(inStatus.load(), 0);
  EXPECT_EQ(inChild.load(), 0);
  RunCommand("ip address del 10.68.0.99/24 dev quorin0");
#endif
  EXPECT_EQ(host.Stop(), 1);
}

// A request shares its uid with a START, whose END comes while the host still has the request.
TEST(MisbehavingHost, KeepsARequestThatLosesItsUid) {
  for (const std::string& subevent : {std::string(), START_LINE}) {
    Host host(LibraryPath());
    std::atomic<bool> release{false};
    std::atomic<int> calls{0};
    host.verdict = [&](EventHeader* header) {
      if (++calls == 2) {
        while (!release.load()) {
          platform::SleepMilliseconds(1);
        }
        EXPECT_EQ(ResultsOfExports(&host, *header), 110) << "nobody to send to";
      }
      return QRN_RESPONSE_OK;
    };
    ASSERT_EQ(host.Start(), 1);
    Scanner scanner;
    scanner.Send(Request(Identity("2.00", "same") + START_LINE, DOCUMENT_V2));
    EXPECT_NE(scanner.Receive(), "");
    scanner.Send(Request(Identity("2.00", "same") + subevent, DOCUMENT_V2));
    EXPECT_TRUE(host.WaitForDeliveries(2));
    scanner.Send(Request(Identity("2.00", "e") + "x-subevent : END\r\nx-parent-uid : same\r\n",
                         DOCUMENT_V2));
    EXPECT_NE(scanner.Receive().find("x-status : 0001"), std::string::npos);
    EXPECT_TRUE(scanner.HearsNothing(2000)) << "the host takes its time";
    release = true;
    EXPECT_NE(scanner.Receive().find("x-uid : same\r\nx-status : 0001"), std::string::npos);
    EXPECT_EQ(host.Stop(), 1);
  }
}

}  // namespace
}  // namespace zvqrn::test
