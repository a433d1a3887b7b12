// Scanners that misbehave: none may stop the service from serving others, from stopping in time, or
// from giving back what it took.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/clock.h"
#include "platform/thread.h"
#include "support/host.h"
#include "support/messages.h"
#include "support/patience.h"
#include "support/process.h"
#include "support/scanner.h"
#include "support/slp_scanner.h"

namespace zvqrn::test {
namespace {

// A stop ends a few waits; one that a peer could hold up would take minutes.
constexpr std::int64_t STOP_LIMIT_MS = PATIENCE_MS;

void Announce(Scanner* scanner, const std::string& length) {
  scanner->Send("POST /PushScan HTTP/1.0\r\nContent-Length : " + length + "\r\n\r\nbegin");
}

// Sends a START and has the host answer with more than the connection holds, which is never read.
void StopReading(Scanner* scanner, Host* host) {
  scanner->Send(Request(Identity("2.00", "deaf") + "x-subevent : START\r\n", DOCUMENT_V2));
  EXPECT_TRUE(host->WaitForDeliveries(1));
  const std::string data(1000000, 'd');
  for (int i = 0; i < 20; i++) {
    EventHeader header = host->Deliveries()[0].header;
    EXPECT_EQ(host->library.sendData(&header, data.data(), 1000000), 1)
        << "the host may queue while a send waits";
  }
  platform::SleepMilliseconds(500);
}

// Waits until half a second has passed in which this process has hardly used the processor: what
// arrived is worked off.  False when something spins.
bool BecomesQuiet() {
  return Eventually([] {
    const std::int64_t before = ProcessorMilliseconds();
    platform::SleepMilliseconds(500);
    return ProcessorMilliseconds() - before < 50;
  });
}

TEST(HostilePeer, CannotHoldUpAStopNorMakeItSpin) {
  const struct {
    const char* name;
    std::function<void(Scanner*, Host*)> act;
  } peers[] = {
      {"announces 2 GB", [](Scanner* s, Host*) { Announce(s, "2147483647"); }},
      {"cuts a body of 2 GB",
       [](Scanner* s, Host*) {
         const std::string whole = Request(Identity("2.00", "cut"), std::string(DOCUMENT_V2));
         const std::size_t length = whole.find("Length : ") + 9;
         s->Send(whole.substr(0, length) + "2000000000" + whole.substr(whole.find("\r\n", length)));
         s->EndSending();
       }},
      {"sends without end",
       [](Scanner* s, Host*) {
         for (int i = 0; i < 500; i++) {
           s->Send(std::string(4096, 'x'));
         }
       }},
      {"stops reading", StopReading},
  };
  for (const auto& peer : peers) {
    Host host(LibraryPath());
    ASSERT_EQ(host.Start(), 1);
    Scanner scanner;
    peer.act(&scanner, &host);
    platform::SleepMilliseconds(200);
    const std::int64_t memory = ResidentKilobytes();
    EXPECT_TRUE(BecomesQuiet()) << peer.name;
    EXPECT_LT(ResidentKilobytes() - memory, 20000) << peer.name;
    const std::int64_t begin = platform::MonotonicMilliseconds();
    EXPECT_EQ(host.Stop(), 1);
    EXPECT_LT(platform::MonotonicMilliseconds() - begin, STOP_LIMIT_MS) << peer.name;
  }
}

// A scanner leaves while the service stops and two answers for it are due: the first send to it
// goes through, and the second must fail without a signal, which would end this program.
TEST(HostilePeer, MayLeaveBeforeTwoAnswers) {
  Host host(LibraryPath());
  std::atomic<bool> release{false};
  host.verdict = [&](EventHeader*) {
    EXPECT_TRUE(Eventually([&] { return release.load(); }));
    return QRN_RESPONSE_OK;
  };
  ASSERT_EQ(host.Start(), 1);
  Scanner scanner;
  scanner.Send(Request(Identity("2.00", "1"), DOCUMENT_V2) +
               Request(Identity("2.00", "2"), DOCUMENT_V2));
  EXPECT_TRUE(host.WaitForDeliveries(2));
  std::thread stopper([&] { EXPECT_EQ(host.Stop(), 1); });
  EXPECT_TRUE(scanner.HearsNothing(1000));
  scanner.Close();
  release = true;
  stopper.join();
}

bool IsServed(const std::string& answer) {
  return answer.find("x-status : 0001\r\n") != std::string::npos;
}

std::string AskOnce(Scanner* scanner) {
  scanner->Send(Request(Identity("2.00", "good"), DOCUMENT_V2));
  return scanner->Receive();
}

// A scanner that is served: the main connection may be another's for a moment yet.
std::unique_ptr<Scanner> TakeMainConnection() {
  std::unique_ptr<Scanner> scanner;
  EXPECT_TRUE(Eventually([&] {
    scanner = std::make_unique<Scanner>();
    return IsServed(AskOnce(scanner.get()));
  }));
  return scanner;
}

// Sends bytes in pieces and ends the connection in one way or the other.
void Play(const std::string& bytes, std::size_t piece, void (Scanner::*end)()) {
  Scanner scanner;
  for (std::size_t i = 0; i < bytes.size() && scanner.Send(bytes.substr(i, piece)); i += piece) {
    platform::SleepMilliseconds(piece == 1 ? 10 : 0);
  }
  (scanner.*end)();
}

// Wine takes 10 ms for each.
#if defined(_WIN32)
constexpr std::size_t KNOCKS = 1000;
#else
constexpr std::size_t KNOCKS = 10000;
#endif

// Connects, `atOnce` at a time, without waiting for room in the queue of arrivals.
void Knock(std::size_t count, std::size_t atOnce) {
  std::uint32_t address = 0;
  platform::TextToAddress("127.0.0.1", &address);
  std::vector<platform::SocketHandle> sockets;
  for (std::size_t i = 0; i < count; i++) {
    sockets.push_back(platform::OpenTcpSocket());
    platform::ConnectTo(sockets.back(), address, 2968, 1);
    if (sockets.size() == atOnce) {
      platform::SleepMilliseconds(atOnce > 1 ? 300 : 0);
      std::for_each(sockets.begin(), sockets.end(), platform::CloseSocket);
      sockets.clear();
    }
  }
}

void Search() {
  SlpScanner searching("127.0.0.9");
  for (int xid = 0; xid < 300; xid++) {
    searching.Send(Encode({xid}), "127.0.0.1");
    searching.Send(Encode({xid}).substr(0, static_cast<std::size_t>(xid % 53)), "127.0.0.1");
  }
}

// Each comes beside a scanner that is served, then alone; in the end everything is given back.
TEST(HostilePeer, DoesNotDisturbTheScannerThatIsServed) {
  const std::string bad = Request(Identity("2.00", "b") + "x-subevent : START\r\n", DOCUMENT_V2);
  const std::string huge = Request(Identity("2.00", "b"), std::string(16000000, ' '));
  std::string flood;
  for (int i = 0; i < 500; i++) {
    flood += bad;
  }
  const std::function<void()> acts[] = {
      [&] { Play(bad.substr(0, 40), 1, &Scanner::Close); },
      [&] { Play("x : " + std::string(2000000, 'x'), 65536, &Scanner::Close); },
      [&] { Play(huge, 65536, &Scanner::Close); },
      [&] { Play(bad, 65536, &Scanner::EndSending); },
      [&] { Play(flood, 65536, &Scanner::Reset); },
      [] { Knock(400, 400); },
      [] { Knock(KNOCKS, 1); },
      Search,
  };
  Host host(LibraryPath());
  ASSERT_EQ(host.Start(), 1);
  const std::ptrdiff_t threads = Threads();
  for (const auto& act : acts) {
    const std::unique_ptr<Scanner> good = TakeMainConnection();
    const std::string expected = AskOnce(good.get());
    EXPECT_TRUE(IsServed(expected)) << "act " << &act - acts;
    std::atomic<bool> over{false};
    std::thread acting([&] {
      act();
      over = true;
    });
    for (int i = 0; i < 20 || !over.load(); i++) {
      EXPECT_EQ(AskOnce(good.get()), expected) << "act " << &act - acts;
    }
    acting.join();
    good->Close();
    act();
  }
  const std::unique_ptr<Scanner> good = TakeMainConnection();
  EXPECT_TRUE(Eventually([&] { return Threads() <= threads + 1; })) << "more than the good one's";
  Scanner extras[5];
  for (Scanner& extra : extras) {
    EXPECT_TRUE(extra.HearsNothing(50)) << "its place was not given back";
  }
  EXPECT_EQ(host.Stop(), 1);
}

TEST(HostilePeer, MaySendHeadsUpToTheLimit) {
  Host host(LibraryPath());
  ASSERT_EQ(host.Start(), 1);
  Scanner scanner;
  for (std::size_t size = 4095; size <= 4097; size++) {
    const std::string head = Identity("2.00", std::string(19, 'u')) + "x-filler : ";
    const std::size_t others = Request(head + "\r\n", DOCUMENT_V2).find("\r\n\r\n") + 4;
    scanner.Send(Request(head + std::string(size - others, 'f') + "\r\n", DOCUMENT_V2));
    const bool fits = size <= 4096;
    EXPECT_EQ(IsServed(scanner.Receive(fits ? PATIENCE_MS : 1500)), fits) << size;
  }
}

// A pipelined flood of requests, of every three one refused, one START and one single: each gets
// its answer, the refused ones in order, while the scanner never pauses; the STARTs, without END,
// go with the connection.  Single ones are forgotten, and the host looks for one that it does not
// have, while the next are recorded.
TEST(HostilePeer, MayAskThousandsOfTimesAtOnce) {
  constexpr int REQUESTS = 3000;
  Host host(LibraryPath());
  ASSERT_EQ(host.Start(), 1);
  std::atomic<bool> done{false};
  std::thread searching([&] {
    EventHeader stranger{};
    for (int i = 0; !done.load(); i++) {
      std::strcpy(stranger.uid, ("x" + std::to_string(i)).c_str());
      EXPECT_EQ(host.library.sendData(&stranger, "x", 1), 0);
      platform::SleepMilliseconds(1);
    }
  });
  Scanner scanner;
  const auto send = [&](const std::string& uid, const std::string& version,
                        const std::string& subevent) {
    const std::string headers =
        Identity(version, uid) + (subevent.empty() ? "" : "x-subevent : " + subevent + "\r\n");
    EXPECT_TRUE(scanner.Send(Request(headers, DOCUMENT_V2)));
  };
  send("early", "2.00", "END\r\nx-parent-uid : 7");
  EXPECT_NE(scanner.Receive().find("x-status : 2002"), std::string::npos);
  for (int i = 0; i < REQUESTS; i++) {
    send(std::to_string(i), i % 3 == 0 ? "3.00" : "2.00", i % 3 == 2 ? "" : "START");
  }
  int refused = 0;
  for (int i = 0; i < REQUESTS; i++) {
    const std::string answer = scanner.Receive();
    if (!IsServed(answer)) {
      const std::string end = ": " + std::to_string(3 * refused++) + "\r\nx-status : 1001\r\n\r\n";
      EXPECT_NE(answer.find(end), std::string::npos) << answer;
    }
  }
  EXPECT_EQ(refused, REQUESTS / 3);
  send("end", "2.00", "END\r\nx-parent-uid : 7");
  EXPECT_TRUE(IsServed(scanner.Receive()));
  done = true;
  searching.join();
  EXPECT_EQ(host.Stop(), 1);
}

}  // namespace
}  // namespace zvqrn::test
