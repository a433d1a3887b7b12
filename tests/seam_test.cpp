// The service with single calls of the platform replaced: a clock that stands, waits that last, and
// refusals of the system.
// Built for the simulated machine too, so that what it does is what the real ones do.

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <string>

#include "base/service_state.h"
#include "discovery/attribute_list.h"
#include "platform/clock.h"
#include "platform/entry.h"
#include "platform/sync.h"
#include "platform/thread.h"
#include "support/host.h"
#include "support/messages.h"
#include "support/patience.h"
#include "support/process.h"
#include "support/replaced_calls.h"
#include "support/scanner.h"
#include "support/slp_scanner.h"

namespace zvqrn::test {
namespace {

std::int32_t QRN_EXPORT KnowsEveryScanner(const char* /*product*/, char* driver) {
  // As long as a driver's name can be, and longer than a version 1 record's product name.
  memcpy(driver, "123456789012345678901234567890123", 33);
  return 1;
}

std::int32_t QRN_EXPORT NamesWithoutEnd(const char* /*product*/, char* driver) {
  memset(driver, 'D', 34);
  return 1;
}

// More than the stacks have on which the library's own code runs.
std::int32_t UseMuchStack() {
  volatile char block[300 * 1024];
  for (std::size_t i = 0; i < sizeof block; i += 4096) {
    block[i] = 1;
  }
  return block[0];
}

std::int32_t QRN_EXPORT NeedsMuchStack(const char* product, char* driver) {
  return UseMuchStack() == 1 ? KnowsEveryScanner(product, driver) : 0;
}

class Seam : public testing::Test {
 protected:
  void SetUp() override {
    testThread = platform::CurrentThreadId();
    longestWait = 0;
    ASSERT_TRUE(platform::OnLibraryLoad());
    service.getTwainName = &KnowsEveryScanner;
    ASSERT_EQ(host.Start(), 1);
  }
  void TearDown() override {
    threadsBeforeRefusal = -1;
    emptySends = 0;
    beforeSend = nullptr;
    refusedAccepts = 0;
    stoppedClock = 0;
    waitsAreEndless = false;
    hostAddress = 0;
    EXPECT_EQ(host.Stop(), 1);
    EXPECT_LE(longestWait.load(), 300) << "a stop would wait longer";
    DestroyServiceLock(&service.runLock);
    platform::CloseSemaphore(service.lifecycleTurn);
  }

  // Returns when the main connection's thread has seen what is there now, and has waited again: it
  // has begun a wait after this call, and one after that.
  static void LetTheConnectionLook() {
    const std::int32_t before = connectionWaits.load();
    EXPECT_TRUE(Eventually([&] { return connectionWaits.load() - before >= 2; }));
  }

  // From here on the library's clock shows what it is set to.
  static void StopTheClock() { stoppedClock = platform::MonotonicMilliseconds(); }

  // Has the service answer a request, and waits until it has settled down again.
  static void Serve(Scanner* scanner, const std::string& request) {
    scanner->Send(request);
    EXPECT_NE(scanner->Receive().find("x-status : 0001\r\n"), std::string::npos) << request;
    LetTheConnectionLook();
  }

  static std::string StartRequest(const char* uid) {
    return Request(Identity("2.00", uid) + "x-subevent : START\r\n", DOCUMENT_V2);
  }
  static EventHeader StartHeader(const char* uid) {
    EventHeader header{EXCHANGE_PAIRED, SUBEVENT_START, {}, "2.00", {}};
    std::strcpy(header.uid, uid);
    return header;
  }

  bool WaitForStatus(const std::string& texts) {
    const std::int64_t deadline = platform::MonotonicMilliseconds() + PATIENCE_MS;
    while (host.StatusTexts() != texts && platform::MonotonicMilliseconds() < deadline) {
      platform::SleepMilliseconds(5);
    }
    return host.StatusTexts() == texts;
  }

  static std::string SingleRequest(const char* uid) {
    return Request(Identity("1.00", uid), DOCUMENT_V1);
  }

  Host host{host::ServiceLibrary{nullptr, &QRNStartService, &QRNStopService, &QRNSendData,
                                 &QRNGetPCName, &QRNSetPCName}};
  // What a callback waits for; it may outlive the test's body.
  std::atomic<bool> release{false};
};

// Nothing but the queueing of an answer wakes the thread that sends it.
TEST_F(Seam, SendsAnAnswerWhenItIsQueued) {
  Scanner scanner;
  host.verdict = [](EventHeader* header) {
    // The connection's thread has long gone back to its wait.
    platform::SleepMilliseconds(std::strcmp(header->uid, "woken") == 0 ? 300 : 0);
    return QRN_RESPONSE_OK;
  };
  Serve(&scanner, StartRequest("start"));
  waitsAreEndless = true;
  scanner.Send(SingleRequest("woken"));
  EXPECT_NE(scanner.Receive().find("x-uid : woken\r\n"), std::string::npos);
  EventHeader start = StartHeader("start");
  EXPECT_EQ(QRNSendData(&start, "data", 4), 1);
  EXPECT_NE(scanner.Receive(), "");
  waitsAreEndless = false;
}

// However much the host sends, the scanner is heard: here there is always one message more.
TEST_F(Seam, HearsTheScannerOfABusyHost) {
  Scanner scanner;
  Serve(&scanner, StartRequest("start"));
  static std::atomic<std::int32_t> sends;
  sends = 0;
  beforeSend = [] {
    sends++;
    EventHeader start = StartHeader("start");
    QRNSendData(&start, "data", 4);
  };
  EventHeader start = StartHeader("start");
  EXPECT_EQ(QRNSendData(&start, "data", 4), 1);
  EXPECT_TRUE(Eventually([] { return sends.load() >= 2; }));
  scanner.Send(SingleRequest("heard"));
  EXPECT_TRUE(host.WaitForDeliveries(2));
}

// A scanner has gone while the host still has its request: the next connection waits for that a
// little, and no longer.
TEST_F(Seam, WaitsForAConnectionThatEnds) {
  StopTheClock();
  host.verdict = [&](EventHeader* header) {
    while (header->uid[0] == 's' && !release.load()) {
      platform::SleepMilliseconds(1);
    }
    return QRN_RESPONSE_OK;
  };
  for (const bool endsInTime : {true, false}) {
    release = true;
    auto scanner = std::make_unique<Scanner>();
    Serve(scanner.get(), SingleRequest("1"));
    release = false;
    scanner->Send(SingleRequest("slow"));
    EXPECT_TRUE(host.WaitForDeliveries(endsInTime ? 2 : 5));
    scanner.reset();
    Scanner next;
    next.Send(SingleRequest("2"));
    EXPECT_TRUE(next.HearsNothing(300));
    stoppedClock += 4999;
    EXPECT_TRUE(next.HearsNothing(300));
    if (endsInTime) {
      release = true;
    } else {
      stoppedClock += 1;
    }
    EXPECT_NE(next.Receive().find(endsInTime ? "x-status : 0001" : "x-status : 2001"),
              std::string::npos);
    if (!endsInTime) {
      Scanner other;
      other.Send(SingleRequest("3"));
      EXPECT_NE(other.Receive().find("x-status : 2001"), std::string::npos)
          << "no patience is left";
    }
    release = true;
  }
}

// The system tells of the new connection before it tells of the old one's end.
TEST_F(Seam, LooksAgainBeforeItIsBusy) {
  static std::unique_ptr<Scanner> scanner;
  scanner = std::make_unique<Scanner>();
  Serve(scanner.get(), SingleRequest("1"));
  afterPeerLook = [] { scanner.reset(); };
  Scanner next;
  next.Send(SingleRequest("2"));
  EXPECT_NE(next.Receive().find("x-status : 0001"), std::string::npos);
}

// The system has no descriptors left: the connection stays in its queue, and is served later.
TEST_F(Seam, PausesAfterAFailedAccept) {
  constexpr std::int32_t MANY = 1000000;
  std::unique_ptr<Scanner> scanners[2];
  for (auto& scanner : scanners) {
    refusedAccepts = MANY;
    scanner = std::make_unique<Scanner>();
    scanner->Send(SingleRequest("1"));
    EXPECT_TRUE(scanner->HearsNothing(1000));
    const std::int32_t tries = MANY - refusedAccepts.exchange(0);
    EXPECT_GT(tries, 1);
    EXPECT_LT(tries, 20);
    EXPECT_NE(scanner->Receive(), "") << "the main connection, then an extra one";
  }
  refusedAccepts = MANY;
  const Scanner waiting;
  EXPECT_TRUE(Eventually([] { return refusedAccepts.load() < MANY; }));
  EXPECT_EQ(host.Stop(), 1);
  refusedAccepts = 0;
  EXPECT_EQ(host.Start(), 1);
}

TEST_F(Seam, FillsTheDriversNameIn) {
  Scanner scanner;
  scanner.Send(SingleRequest("1"));
  EXPECT_NE(scanner.Receive(), "");
  EXPECT_EQ(host.Deliveries()[0].data.substr(0, 66),
            "123456789012345678901234567890123" + std::string(33, '\0'));
  scanner.Send(Request(Identity("2.00", "2"), DOCUMENT_V2));
  EXPECT_NE(scanner.Receive(), "");
  EXPECT_EQ(host.Deliveries()[1].data.substr(0, 66), "XS-200" + std::string(26, '\0') +
                                                         "123456789012345678901234567890123" +
                                                         std::string(1, '\0'));
}

TEST_F(Seam, AnswersWhenADeliveryCannotStart) {
  Scanner scanner;
  scanner.Send(StartRequest("first"));
  EXPECT_NE(scanner.Receive(), "");
  threadsBeforeRefusal = 0;
  scanner.Send(
      Request(Identity("2.00", "e") + "x-subevent : END\r\nx-parent-uid : first\r\n", DOCUMENT_V2));
  EXPECT_NE(scanner.Receive().find("x-uid : e\r\nx-parent-uid : first\r\nx-status : 3001\r\n"),
            std::string::npos);
  threadsBeforeRefusal = 0;
  scanner.Send(Request(Identity("2.00", "refused") + "x-subevent : START\r\n", DOCUMENT_V2));
  EXPECT_EQ(scanner.Receive(),
            std::string(ANSWER_BEGIN) +
                "x-protocol-name : Zorva Network Service Protocol\r\n"
                "x-protocol-version : 2.00\r\nx-subevent : START\r\nx-uid : refused\r\n"
                "x-status : 3001\r\n\r\n");
  scanner.Send(Request(Identity("2.00", "end") + "x-subevent : END\r\nx-parent-uid : refused\r\n",
                       DOCUMENT_V2));
  EXPECT_NE(scanner.Receive().find("x-status : 2002\r\n"), std::string::npos)
      << "the START is forgotten";
  EXPECT_EQ(host.Deliveries().size(), 1U);
  // A connection for which no thread can be had is closed, and the next one is served; so is an
  // extra one, whose slot is free again.
  threadsBeforeRefusal = 0;
  Scanner extra;
  EXPECT_TRUE(extra.SeesClose());
  scanner.Close();
  threadsBeforeRefusal = 0;
  Scanner unlucky;
  EXPECT_TRUE(unlucky.SeesClose());
  Scanner lucky;
  lucky.Send(SingleRequest("lucky"));
  EXPECT_NE(lucky.Receive().find("x-status : 0001\r\n"), std::string::npos);
}

TEST_F(Seam, FailsAStartWithoutThreads) {
  // Those of the watcher, without which the service runs all the same; the listener; discovery.
  std::string results;
  for (bool met = true; met;) {
    host.Stop();
    threadsBeforeRefusal = static_cast<std::int32_t>(results.size());
    const std::int32_t result = host.Start();
    met = threadsBeforeRefusal.exchange(-1) < 0;
    results += std::to_string(result);
  }
  host.Stop();
  EXPECT_EQ(results.substr(results.find('0')), "001");
  EXPECT_GT(results.find('0'), 0U);
  refusedJoins = 1;
  EXPECT_EQ(host.Start(), 0) << "nobody would find it";
  // Nor does half a service remain when discovery cannot start once the address comes.
  std::uint32_t loopback = 0;
  EXPECT_TRUE(platform::TextToAddress("127.0.0.1", &loopback));
  hostAddress = loopback;
  addressReads = 0;
  EXPECT_EQ(host.Start(), 1);
  EXPECT_TRUE(Eventually([] { return addressReads.load() == 2; }));
  threadsBeforeRefusal = 1;
  hostAddress = 0;
  TellOfAddressChange();
  EXPECT_TRUE(Eventually([] {
    return service.watcherState.load() == THREAD_IDLE &&
           service.listenerState.load() == THREAD_IDLE;
  }));
  EXPECT_EQ(host.Start(), 1);
}

TEST_F(Seam, TriesAnEmptySendThreeTimes) {
  Scanner scanner;
  emptySends = 2;
  const std::int64_t begin = platform::MonotonicMilliseconds();
  scanner.Send(SingleRequest("patient"));
  EXPECT_NE(scanner.Receive().find("x-uid : patient\r\n"), std::string::npos);
  EXPECT_GE(platform::MonotonicMilliseconds() - begin, 2000) << "a pause after each";
  emptySends = 3;
  scanner.Send(SingleRequest("given up"));
  EXPECT_TRUE(scanner.SeesClose());
  EXPECT_EQ(emptySends.load(), 0);
}

TEST_F(Seam, KeepsDoubleByteCharactersWhole) {
  leadByte = '\x83';
  const struct {
    const char* name;
    std::int32_t length;
    std::int32_t result;
    const char* escaped;
  } cases[] = {
      {"A\x83\x5C,", 4, 1, "A\x83\x5C\\,"}, {"\x83\x83", 2, 1, "\x83\x83"},
      {"\x83(\\", 3, 1, "\x83(\\\\"},       {"AB\x83", 3, 0, "AB"},
      {"\x83\x83\x83", 3, 0, "\x83\x83"},   {"\x83", 1, 0, nullptr},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(QRNSetPCName(c.name, c.length), c.result) << c.name;
    char* escaped = EscapeAttributeValue(c.name);
    EXPECT_STREQ(escaped, c.escaped) << c.name;
    free(escaped);
  }
  leadByte = 0;
}

TEST_F(Seam, FollowsThePcsAddress) {
  const auto changeTo = [](const char* text) {
    std::uint32_t address = 0;
    EXPECT_TRUE(platform::TextToAddress(text, &address));
    hostAddress = address;
    TellOfAddressChange();
  };
  const auto comesToTell = [&](const std::string& texts) {
    EXPECT_TRUE(Eventually([&] { return host.StatusTexts() == texts; })) << host.StatusTexts();
  };
  const std::string noNetwork = "257 769 There is no network interface card which can be used.\n";
  const std::string restart = "259 770 Service restart.\n";
  ASSERT_EQ(host.Stop(), 1);
  changeTo("127.0.0.1");
  SlpScanner scanner;
  addressReads = 0;
  ASSERT_EQ(host.Start(), 1);
  EXPECT_EQ(host.StatusTexts(), noNetwork);
  // The start's reading and the watcher's first look, which would take what comes earlier for a
  // change of its own.
  EXPECT_TRUE(Eventually([] { return addressReads.load() == 2; }));
  std::string told = noNetwork;
  // A name that has no address for now does not end the wait.
  resolvesToNothing = true;
  TellOfAddressChange();
  EXPECT_TRUE(Eventually([] { return addressReads.load() > 2; }));
  resolvesToNothing = false;
  for (const char* address : {"10.68.0.2", "10.68.0.77"}) {
    unreadableAddresses = 2;
    changeTo(address);
    comesToTell(told += restart);
    const std::string reply = scanner.Ask(PC_ADDRESS);
    EXPECT_NE(reply.find(std::string("(IPAddress=") + address + ")"), std::string::npos);
  }
  // An address that cannot be read for now stays announced, one that is gone does not.
  const std::int32_t reads = addressReads.load();
  unreadableAddresses = INT_MAX;
  TellOfAddressChange();
  EXPECT_TRUE(Eventually([&] { return addressReads.load() >= reads + 2; }));
  EXPECT_NE(scanner.Ask(PC_ADDRESS).find("(IPAddress=10.68.0.77)"), std::string::npos);
  unreadableAddresses = 0;
  comesToTell(told += restart);
  resolvesToNothing = true;
  TellOfAddressChange();
  EXPECT_TRUE(Eventually([] {
    char* list = nullptr;
    std::int32_t length = 0;
    BuildAttributeList(&list, &length);
    free(list);
    return list == nullptr;
  }));
  resolvesToNothing = false;
  changeTo("127.0.0.1");
  comesToTell(told += noNetwork);
  refusedJoins = 2;
  changeTo("10.68.0.2");
  comesToTell(told += restart);
  EXPECT_TRUE(Eventually([] { return refusedJoins.load() == 0; })) << "not joined";
  EXPECT_TRUE(Eventually([] {
    return platform::WaitEvent(service.rejoinEvent, 0) == platform::SYNC_TIMED_OUT;
  })) << "discovery leaves and joins its group without end";
}

// Without word of changes nobody would end the wait for an address: the service runs without one.
TEST_F(Seam, DoesNotWaitForAnAddressInVain) {
  ASSERT_EQ(host.Stop(), 1);
  std::uint32_t loopback = 0;
  ASSERT_TRUE(platform::TextToAddress("127.0.0.1", &loopback));
  hostAddress = loopback;
  threadsBeforeRefusal = 0;
  EXPECT_EQ(host.Start(), 1);
  std::int32_t length = 0;
  EXPECT_EQ(QRNGetPCName(nullptr, &length), 1);
}

// The system ends a notice with the thread that has asked for it, and what has told of a change
// cannot be cancelled.
TEST_F(Seam, LeavesNothingOfANoticeBehind) {
  EXPECT_NE(askingThread.load(), platform::CurrentThreadId());
  completesInstead = true;
  std::ptrdiff_t handles[2] = {};
  for (std::ptrdiff_t& held : handles) {
    EXPECT_EQ(host.Stop(), 1);
    held = Handles();
    EXPECT_EQ(host.Start(), 1);
  }
  EXPECT_EQ(handles[1], handles[0]);
  completesInstead = false;
}

// A utility library and callbacks may need what the host's own threads have.
TEST_F(Seam, GivesTheHostsCodeItsStack) {
  ASSERT_EQ(host.Stop(), 1);
  service.getTwainName = &NeedsMuchStack;
  host.verdict = [](EventHeader*) { return UseMuchStack(); };
  host.filter = [](const PeerDescription*) { return UseMuchStack(); };
  host.onStatus = [] { UseMuchStack(); };
  std::uint32_t loopback = 0;
  ASSERT_TRUE(platform::TextToAddress("127.0.0.1", &loopback));
  hostAddress = loopback;
  ASSERT_EQ(host.Start(), 1);
  // The watcher tells the host of no network, discovery tells it again as it begins.
  TellOfAddressChange();
  const std::string noNetwork = "257 769 There is no network interface card which can be used.\n";
  EXPECT_TRUE(WaitForStatus(noNetwork + noNetwork + noNetwork + "259 770 Service restart.\n"));
  hostAddress = 0;
  ASSERT_EQ(host.Stop(), 1);
  ASSERT_EQ(host.Start(), 1);
  Scanner scanner;
  scanner.Send(SingleRequest("1"));
  EXPECT_NE(scanner.Receive().find("x-status : 0001\r\n"), std::string::npos);
  SlpScanner searching;
  searching.Send(Encode({1, "any scanner"}));
  EXPECT_NE(searching.Receive(PATIENCE_MS), "");
}

// The system refuses a thread: that request is dropped, and its repeat is answered.
TEST_F(Seam, DropsARequestThatCannotBeAnswered) {
  SlpScanner scanner;
  threadsBeforeRefusal = 0;
  scanner.Send(Encode({7}));
  EXPECT_EQ(scanner.Receive(500), "");
  scanner.Send(Encode({7}));
  EXPECT_NE(scanner.Receive(PATIENCE_MS), "");
}

// A driver's name that fills its whole buffer is cut, not read past it.
TEST_F(Seam, CutsADriversNameWithoutEnd) {
  ASSERT_EQ(host.Stop(), 1);
  service.getTwainName = &NamesWithoutEnd;
  ASSERT_EQ(host.Start(), 1);
  Guarded<std::string> seen;
  host.filter = [&](const PeerDescription* peer) {
    seen = peer->driverName;
    return 1;
  };
  SlpScanner scanner;
  scanner.Send(Encode({8, "any scanner"}));
  EXPECT_NE(scanner.Receive(PATIENCE_MS), "");
  EXPECT_EQ(seen.Get(), std::string(33, 'D'));
}

}  // namespace
}  // namespace zvqrn::test
