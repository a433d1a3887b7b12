// The service with single calls of the platform replaced: long waits, and refusals of the system.

#include <gtest/gtest.h>

#include "base/service_state.h"
#include "discovery/attribute_list.h"
#include "platform/clock.h"
#include "platform/entry.h"
#include "platform/thread.h"
#include "support/host.h"
#include "support/messages.h"
#include "support/patience.h"
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
    isTestThread = true;
    clockAhead = 0;
    ASSERT_TRUE(platform::OnLibraryLoad());
    service.getTwainName = &KnowsEveryScanner;
    ASSERT_EQ(host.Start(), 1);
  }
  void TearDown() override {
    threadsBeforeRefusal = -1;
    emptySends = 0;
    hostAddress = 0;
    EXPECT_EQ(host.Stop(), 1);
    DestroyServiceLock(&service.runLock);
    platform::CloseSemaphore(service.lifecycleTurn);
  }

  // The main connection closes its socket before its place is free, and until then the next
  // connection is an extra one.
  static void WaitForFreePlace() {
    EXPECT_TRUE(Eventually([] { return service.connectionState.load() == THREAD_IDLE; }));
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
};

TEST_F(Seam, ClosesConnectionsThatStayIdle) {
  Scanner main;
  main.Send(SingleRequest("1"));
  EXPECT_NE(main.Receive(), "");
  Scanner extra;
  EXPECT_TRUE(extra.HearsNothing(400));
  clockAhead = 85;
  EXPECT_TRUE(extra.HearsNothing(700));
  clockAhead = 91;
  EXPECT_TRUE(extra.SeesClose());
  // Half a message does not count as one; a whole message does.
  clockAhead = 290;
  main.Send(SingleRequest("2"));
  EXPECT_NE(main.Receive(), "");
  EXPECT_TRUE(main.HearsNothing(400));
  clockAhead = 580;
  EXPECT_TRUE(main.HearsNothing(700));
  main.Send("POST /PushScan HT");
  EXPECT_TRUE(main.HearsNothing(700));
  clockAhead = 591;
  EXPECT_TRUE(main.SeesClose());
  WaitForFreePlace();
  // A clock that is set back ends the wait as well.
  Scanner next;
  next.Send(SingleRequest("3"));
  EXPECT_NE(next.Receive(), "");
  EXPECT_TRUE(next.HearsNothing(400));
  clockAhead = 0;
  EXPECT_TRUE(next.SeesClose());
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
  scanner.Send(SingleRequest("first"));
  EXPECT_NE(scanner.Receive(), "");
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
  WaitForFreePlace();
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
  for (const char* address : {"10.68.0.2", "10.68.0.77"}) {
    changeTo(address);
    comesToTell(told += restart);
    const std::string reply = scanner.Ask(PC_ADDRESS);
    EXPECT_NE(reply.find(std::string("(IPAddress=") + address + ")"), std::string::npos);
  }
  changeTo("127.0.0.1");
  comesToTell(told += noNetwork);
  changeTo("10.68.0.2");
  comesToTell(told += restart);
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
