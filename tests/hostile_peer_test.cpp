// Scanners that misbehave: none may stop the service from serving others, from stopping in time, or
// from giving back what it took.

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "platform/clock.h"
#include "platform/thread.h"
#include "support/host.h"
#include "support/messages.h"
#include "support/process.h"
#include "support/scanner.h"

namespace zvqrn::test {
namespace {

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

TEST(HostilePeer, CannotHoldUpAStopNorMakeItSpin) {
  const struct {
    const char* name;
    std::function<void(Scanner*, Host*)> act;
  } peers[] = {
      {"never speaks", [](Scanner*, Host*) {}},
      {"stops in the head", [](Scanner* s, Host*) { s->Send("POST /Push"); }},
      {"stops in the body", [](Scanner* s, Host*) { Announce(s, "100000"); }},
      {"announces 2 GB", [](Scanner* s, Host*) { Announce(s, "2147483647"); }},
      {"announces more than an integer holds",
       [](Scanner* s, Host*) { Announce(s, "99999999999999999999"); }},
      {"announces less than nothing", [](Scanner* s, Host*) { Announce(s, "-2147483648"); }},
      {"sends without end",
       [](Scanner* s, Host*) {
         for (int i = 0; i < 500; i++) {
           s->Send(std::string(4096, 'x'));
         }
       }},
      {"stops reading", StopReading},
      {"resets at once", [](Scanner* s, Host*) { s->Reset(); }},
      {"resets in the middle",
       [](Scanner* s, Host*) {
         Announce(s, "1000");
         s->Reset();
       }},
      {"resets before the answer",
       [](Scanner* s, Host*) {
         s->Send(Request(Identity("2.00", "1"), DOCUMENT_V2));
         s->Reset();
       }},
  };
  for (const auto& peer : peers) {
    Host host(LibraryPath());
    ASSERT_EQ(host.Start(), 1);
    Scanner scanner;
    peer.act(&scanner, &host);
    platform::SleepMilliseconds(200);
    const std::int64_t memory = ResidentKilobytes();
    const std::int64_t processor = ProcessorMilliseconds();
    platform::SleepMilliseconds(1000);
    EXPECT_LT(ProcessorMilliseconds() - processor, 300) << peer.name << ": something spins";
    EXPECT_LT(ResidentKilobytes() - memory, 20000) << peer.name;
    const std::int64_t begin = platform::MonotonicMilliseconds();
    EXPECT_EQ(host.Stop(), 1);
    EXPECT_LT(platform::MonotonicMilliseconds() - begin, 5000) << peer.name;
  }
}

TEST(HostilePeer, CannotDripItsWayPastAStop) {
  Host host(LibraryPath());
  ASSERT_EQ(host.Start(), 1);
  Scanner scanner;
  scanner.Send("POST /PushScan HTTP/1.0\r\nContent-Length : 1000000\r\n\r\n");
  std::atomic<bool> stopped{false};
  std::thread dripping([&] {
    while (!stopped.load() && scanner.Send("x")) {
      platform::SleepMilliseconds(50);
    }
  });
  platform::SleepMilliseconds(500);
  const std::int64_t begin = platform::MonotonicMilliseconds();
  EXPECT_EQ(host.Stop(), 1);
  EXPECT_LT(platform::MonotonicMilliseconds() - begin, 3000);
  stopped = true;
  dripping.join();
}

// A pipelined flood: every request is answered, in order, while the scanner never pauses.
TEST(HostilePeer, MayFloodAndGetsItsAnswers) {
  constexpr int REQUESTS = 400;
  Host host(LibraryPath());
  ASSERT_EQ(host.Start(), 1);
  Scanner scanner;
  std::thread sender([&] {
    for (int i = 0; i < REQUESTS; i++) {
      const char* subevent = i % 2 == 0 ? "x-subevent : START\r\n" : "";
      EXPECT_TRUE(scanner.Send(Request(Identity("3.00", std::to_string(i)) + subevent, "x")));
    }
  });
  sender.join();
  for (int i = 0; i < REQUESTS; i++) {
    EXPECT_NE(scanner.Receive().find("x-uid : " + std::to_string(i) + "\r\nx-status : 1001"),
              std::string::npos)
        << i;
  }
  EXPECT_EQ(host.Stop(), 1);
}

// Connections that come and go by the hundred leave nothing behind, and the next scanner is served.
TEST(HostilePeer, MayConnectAndVanish) {
  Host host(LibraryPath());
  ASSERT_EQ(host.Start(), 1);
  for (int i = 0; i < 300; i++) {
    Scanner scanner;
    if (i % 3 == 0) {
      scanner.Send(i % 2 == 0 ? "POST" : Request(Identity("2.00", "v"), DOCUMENT_V2));
    }
    if (i % 2 == 0) {
      scanner.Reset();
    }
    // Slower than the short queue of arrivals can fill up, which would only try the system.
    platform::SleepMilliseconds(3);
  }
  std::string answer;
  for (int i = 0; i < 100 && answer.find("x-status : 0001") == std::string::npos; i++) {
    platform::SleepMilliseconds(50);
    Scanner scanner;
    scanner.Send(Request(Identity("2.00", "served"), DOCUMENT_V2));
    answer = scanner.Receive();
  }
  EXPECT_NE(answer.find("x-uid : served\r\nx-status : 0001\r\n"), std::string::npos);
  EXPECT_EQ(host.Stop(), 1);
}

}  // namespace
}  // namespace zvqrn::test
