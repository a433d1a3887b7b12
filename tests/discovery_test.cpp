// Scanners look for the PC, by real multicast in a private network.

#include <gtest/gtest.h>

#include <atomic>
#include <clocale>
#include <cstdlib>
#include <mutex>
#include <numeric>
#include <thread>

#include "platform/clock.h"
#include "platform/thread.h"
#include "support/host.h"
#include "support/patience.h"
#include "support/process.h"
#include "support/slp_scanner.h"

namespace zvqrn::test {
namespace {

using namespace std::string_literals;

class Discovery : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(InPrivateNetwork());
    ASSERT_EQ(host.Start(), 1);
    ASSERT_EQ(host.library.setPcName("OFFICE(1)", 9), 1);
  }
  void TearDown() override { EXPECT_EQ(host.Stop(), 1); }

  Host host{LibraryPath()};
  SlpScanner scanner;
};

TEST_F(Discovery, AnswersInABurstOfThree) {
  std::string reply =
      "\x02\x07\x00\x00\x54\x00\x00\x00\x00\x00\xAB\x00\x00\x02"
      "en\x00\x00\x00\x3F(ClientName=OFFICE\\(1\\)),(IPAddress=10.68.0.2),(EventPort=2968)\x00"s;
  void (*const ways[])(SlpScanner*, const std::string&) = {
      [](SlpScanner* s, const std::string& bytes) { s->SendByMulticast(bytes); },
      [](SlpScanner* s, const std::string& bytes) { s->Send(bytes); },
      [](SlpScanner* s, const std::string& bytes) { s->SendFromAnotherPort(bytes); },
  };
  for (const auto way : ways) {
    reply[11]++;
    const std::int64_t begin = platform::MonotonicMilliseconds();
    way(&scanner, Encode({0xAB00 + reply[11]}));
    for (const std::int64_t pause : {0, 500, 1000}) {
      EXPECT_EQ(scanner.Receive(PATIENCE_MS), reply);
      EXPECT_GE(platform::MonotonicMilliseconds() - begin, pause - 20);
    }
    EXPECT_EQ(scanner.Receive(700), "") << "three and no more";
  }
}

TEST_F(Discovery, AcceptsByTheRules) {
  std::mutex mutex;
  std::string asked;
  host.filter = [&](const PeerDescription* peer) {
    const std::lock_guard<std::mutex> guard(mutex);
    asked += std::string(peer->driverName) + "|" + peer->serviceType + "|" + peer->scopeList + "|" +
             peer->tagList + "\n";
    const std::map<std::string, int> answers = {{"XS-300", 0}, {"XD-7500", 2}, {"XF-A3", -1}};
    const auto answer = answers.find(peer->scopeList);
    return answer == answers.end() ? 1 : answer->second;
  };
  const std::string padded = Encode(SlpRequest{40, "default", "", "service:Quorin-agent", ""});
  const std::string ofLength1400 = Encode(SlpRequest{41, "default", "", "service:Quorin-agent",
                                                     std::string(1400 - padded.size(), 't')});
  const std::string ofLength1401 = Encode(SlpRequest{42, "default", "", "service:Quorin-agent",
                                                     std::string(1401 - padded.size(), 't')});
  ASSERT_EQ(ofLength1400.size(), 1400U);
  const struct {
    const char* name;
    std::string bytes;
    int replies;
  } cases[] = {
      {"0 default", Encode({0}), 3},
      {"1 capital letters", Encode({1, "Default", "", "SERVICE:QUORIN-AGENT"}), 3},
      {"2 default among others", Encode({2, "default,other"}), 0},
      {"3 no scope", Encode({3, ""}), 0},
      {"4 another service", Encode({4, "default", "", "service:Quorin-agent2"}), 0},
      {"5 no service", Encode({5, "default", "", ""}), 0},
      {"6 heard before", Encode({6, "default", "10.0.0.1,10.68.0.2"}), 0},
      {"7 another was heard", Encode({7, "default", "10.68.0.20,110.68.0.2, 10.68.0.2"}), 3},
      {"8 no language", Encode({8, "default", "", "service:Quorin-agent", "", ""}), 0},
      {"9 a scanner's scope", Encode({9, "XS-200", "", "Service:Quorin-Agent", "a,b"}), 3},
      {"10 a scanner that the host declines", Encode({10, "XS-300"}), 0},
      {"11 an unknown scanner", Encode({11, "XS-999"}), 0},
      {"12 two scanners", Encode({12, "XS-200,XS-300"}), 0},
      {"13 an escaped name", Encode({13, "XS\\-200"}), 3},
      {"14 a bad escape", Encode({14, "XS-200\\"}), 0},
      {"15 one comma behind", Encode({15, "XS-200,"}), 3},
      {"16 twice", Encode({16}), 3},
      {"16 again", Encode({16}), 3},
      {"1040 the same but for the XID", Encode({16 + 1024}), 3},
      {"17 a reply", Encode({17}).replace(1, 1, "\x07"), 0},
      {"18 a wrong length", Encode({18}) + "x", 0},
      {"19 another version", Encode({19}).replace(0, 1, "\x01"), 3},
      {"20 a scanner for which the host says 2", Encode({20, "XD-7500"}), 0},
      {"21 a scanner for which the host says -1", Encode({21, "XF-A3"}), 0},
      {"41 the largest", ofLength1400, 3},
      {"42 one larger", ofLength1401, 0},
      {"43 one larger than it says",
       Encode(SlpRequest{43, "default", "", "service:Quorin-agent",
                         std::string(1400 - padded.size(), 't')}) +
           "x",
       0},
  };
  std::map<int, int> expected;
  for (const auto& c : cases) {
    scanner.Send(c.bytes);
    expected[std::atoi(c.name)] = c.replies;
  }
#if !defined(_WIN32)  // under Wine one scanner at a time
  // An XID is its sender's own.
  SlpScanner other("127.0.0.9");
  other.Send(cases[0].bytes);
  // Somebody else's group, which another program of this PC has joined.
  const platform::SocketHandle member = platform::OpenUdpSocket();
  std::uint32_t group = 0;
  platform::GroupMembership membership{};
  EXPECT_TRUE(platform::TextToAddress("239.1.2.3", &group) &&
              platform::JoinGroup(member, group, &membership));
  scanner.Send(Encode({44}), "239.1.2.3");
#endif
  const int all = std::accumulate(expected.begin(), expected.end(), 0,
                                  [](int sum, const auto& entry) { return sum + entry.second; });
  std::map<int, int> counts = scanner.CountReplies(PATIENCE_MS, all);
  for (const auto& tooMany : scanner.CountReplies(700)) {
    counts[tooMany.first] += tooMany.second;
  }
#if !defined(_WIN32)
  EXPECT_EQ(other.CountReplies(PATIENCE_MS, 3)[0], 3) << "another sender with the same XID";
  EXPECT_EQ(counts.count(44), 0U) << "another group";
  platform::CloseSocket(member);
#endif
  for (const auto& c : cases) {
    EXPECT_EQ(counts[std::atoi(c.name)], c.replies) << c.name;
  }
  const std::lock_guard<std::mutex> guard(mutex);
  // What is not the default scope is asked about, in the words of the request.
  EXPECT_NE(asked.find("Quorin XS-200|Service:Quorin-Agent|XS-200|a,b\n"), std::string::npos);
  EXPECT_NE(asked.find("Quorin XS-300|service:Quorin-agent|XS-300|\n"), std::string::npos);
  EXPECT_NE(asked.find("Quorin XS-200|service:Quorin-agent|XS\\-200|\n"), std::string::npos);
  EXPECT_EQ(std::count(asked.begin(), asked.end(), '\n'), 6);
  // Once the burst is over the same request is answered again.
  EXPECT_TRUE(Eventually([&] {
    scanner.Send(Encode({16}));
    return !scanner.Receive(300).empty();
  }));
}

// By the ANSI code page: 932 in a Japanese locale under Windows, else 1252.
TEST_F(Discovery, TellsTheNameInUtf8) {
  const char* const locale = std::getenv("LC_ALL");
  const bool japanese = locale != nullptr && std::string(locale).rfind("ja_JP", 0) == 0;
  const struct {
    const char* name;
    const char* western;
    const char* inJapan;
  } cases[] = {
      {"\x83\x5C(", "\xC6\x92\\\\\\(", "\xE3\x82\xBD\\("},
      {"\xB1,", "\xC2\xB1\\,", "\xEF\xBD\xB1\\,"},
      // Half a character is no name.
      {"A\x83", "A\xC6\x92", "\xEF\xBD\xB1\\,"},
  };
  for (int xid = 0; xid < 3; xid++) {
    const auto& c = cases[xid];
    const bool refused = japanese && xid == 2;
    const auto length = static_cast<std::int32_t>(std::string(c.name).size());
    EXPECT_EQ(host.library.setPcName(c.name, length), refused ? 0 : 1);
    scanner.Send(Encode({xid}));
    std::string reply;
    do {
      reply = scanner.Receive(PATIENCE_MS);
    } while (reply.size() > 12 && reply[11] != xid);
    const std::string wanted =
        std::string("(ClientName=") + (japanese ? c.inJapan : c.western) + "),";
    EXPECT_NE(reply.find(wanted), std::string::npos) << reply;
  }
#if !defined(_WIN32)  // a process there has its code page for good
  ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  EXPECT_EQ(host.library.setPcName("B\xC3\xBCro", 5), 1);
  const std::string reply = scanner.Ask(PC_ADDRESS);
  EXPECT_NE(reply.find("(ClientName=B\xC3\xBCro),"), std::string::npos) << reply;
  std::setlocale(LC_CTYPE, "C");
#endif
}

// A burst that has begun is finished, none begins, and the port is taken to the end: a search gets
// no reply, and no word that nobody listens.
TEST_F(Discovery, FinishesBurstsAtAStop) {
  scanner.Send(Encode({1}));
  ASSERT_NE(scanner.Receive(PATIENCE_MS), "");
  const platform::SocketHandle late = platform::OpenUdpSocket();
  std::uint32_t address = 0;
  platform::TextToAddress(PC_ADDRESS, &address);
  ASSERT_EQ(platform::ConnectTo(late, address, 2968, 0), platform::CONNECT_DONE);
  const std::int64_t begin = platform::MonotonicMilliseconds();
  std::thread stopper([&] { EXPECT_EQ(host.Stop(), 1); });
  // Before the second reply, and long after every thread has seen the stop.
  platform::SleepMilliseconds(400);
  const std::string search = Encode({2});
  scanner.Send(search);
  EXPECT_GT(platform::SendBytes(late, search.data(), static_cast<std::int32_t>(search.size())), 0);
  char reply = 0;
  EXPECT_EQ(platform::ReceiveBytes(late, &reply, 1), platform::RECEIVE_NOTHING);
  stopper.join();
  EXPECT_LT(platform::MonotonicMilliseconds() - begin, 5000);
  EXPECT_EQ(scanner.CountReplies(200), (std::map<int, int>{{1, 2}}));
  platform::CloseSocket(late);
  ASSERT_EQ(host.Start(), 1);
}

TEST_F(Discovery, SurvivesAFlood) {
  constexpr int REQUESTS = 250;
  const std::ptrdiff_t threads = Threads();
  // Requests among rubbish; then, as a scanner does, those again that were not answered, because a
  // socket's buffer may not hold a whole flood.
  std::map<int, int> replies;
  const std::int64_t begin = platform::MonotonicMilliseconds();
  for (bool rubbish = true;
       replies.size() < REQUESTS && platform::MonotonicMilliseconds() - begin < PATIENCE_MS;
       rubbish = false) {
    for (int xid = 0; xid < REQUESTS; xid++) {
      if (replies.count(xid) == 0) {
        scanner.Send(Encode({xid}));
      }
      for (int i = 0; rubbish && i < 4; i++) {
        scanner.Send(Encode({xid}).substr(0, static_cast<std::size_t>(xid % 53 + 1)));
      }
    }
    replies.merge(scanner.CountReplies(2500));
  }
  // First, because a failure has GoogleTest start a thread of its own under Windows.
  EXPECT_TRUE(Eventually([&] { return Threads() <= threads; }));
  EXPECT_EQ(replies.size(), static_cast<std::size_t>(REQUESTS));
}

}  // namespace
}  // namespace zvqrn::test
