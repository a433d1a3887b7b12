// The PC's address comes, changes and goes, in a private network.

#include <gtest/gtest.h>

#include "platform/clock.h"
#include "platform/thread.h"
#include "support/host.h"
#include "support/messages.h"
#include "support/process.h"
#include "support/scanner.h"
#include "support/slp_scanner.h"

namespace zvqrn::test {
namespace {

const std::string NO_NETWORK = "257 769 There is no network interface card which can be used.\n";
const std::string RESTART = "259 770 Service restart.\n";

class Address : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(InPrivateNetwork());
    RunCommand("ip address flush dev quorin0");
  }
  void TearDown() override {
    host.Stop();
    RunCommand("ip address flush dev quorin0");
    Add(PC_ADDRESS);
  }

  static void Add(const std::string& address) {
    RunCommand("ip address replace " + address + "/24 dev quorin0");
    RunCommand("ip route replace default via 10.68.0.1 dev quorin0 onlink");
  }

  bool WaitForStatus(const std::string& texts) {
    const std::int64_t deadline = platform::MonotonicMilliseconds() + 10000;
    while (host.StatusTexts() != texts && platform::MonotonicMilliseconds() < deadline) {
      platform::SleepMilliseconds(5);
    }
    EXPECT_EQ(host.StatusTexts(), texts);
    return host.StatusTexts() == texts;
  }

  // The address that scanners are told, by requests to loopback; "none" when they hear nothing.
  // Datagrams of earlier bursts may still come.
  static std::string AnnouncedAddress(int firstXid) {
    SlpScanner scanner("127.0.0.9");
    for (int xid = firstXid; xid < firstXid + 5; xid++) {
      scanner.Send(Encode({xid}), "127.0.0.1");
      for (std::string reply = scanner.Receive(300); !reply.empty(); reply = scanner.Receive(300)) {
        const std::size_t at = reply.find("(IPAddress=") + 11;
        if (((reply[10] & 0xFF) << 8 | (reply[11] & 0xFF)) == xid) {
          return reply.substr(at, reply.find(')', at) - at);
        }
      }
    }
    return "none";
  }

  Host host{LibraryPath()};
};

TEST_F(Address, IsWaitedForAndServedWhenItComes) {
  EXPECT_EQ(host.Start(), 1);
  EXPECT_TRUE(WaitForStatus(NO_NETWORK));
  std::int32_t length = 0;
  EXPECT_EQ(host.library.getPcName(nullptr, &length), 0) << "it does not run yet";
  platform::SleepMilliseconds(300);
  Add("10.68.0.2");
  EXPECT_TRUE(WaitForStatus(NO_NETWORK + RESTART));
  EXPECT_EQ(host.library.getPcName(nullptr, &length), 1);
  {
    Scanner scanner;
    scanner.Send(Request(Identity("2.00", "1"), DOCUMENT_V2));
    EXPECT_NE(scanner.Receive().find("x-status : 0001\r\n"), std::string::npos);
  }
  EXPECT_EQ(AnnouncedAddress(100), "10.68.0.2");
  EXPECT_EQ(host.Stop(), 1);
  EXPECT_EQ(host.Stop(), 0);
}

TEST_F(Address, WaitEndsWithAStopOrANewStart) {
  EXPECT_EQ(host.Start(), 1);
  EXPECT_EQ(host.Stop(), 0) << "a service that waits is ended, with this result";
  Add("10.68.0.2");
  platform::SleepMilliseconds(400);
  EXPECT_EQ(host.StatusTexts(), NO_NETWORK) << "nobody waits any more";
  RunCommand("ip address flush dev quorin0");
  EXPECT_EQ(host.Start(), 1);
  EXPECT_EQ(host.Start(), 1) << "waits anew";
  EXPECT_EQ(host.StatusTexts(), NO_NETWORK + NO_NETWORK + NO_NETWORK);
  Add("10.68.0.2");
  EXPECT_TRUE(WaitForStatus(NO_NETWORK + NO_NETWORK + NO_NETWORK + RESTART)) << "once";
  EXPECT_EQ(host.Start(), 0) << "it runs";
  // A service that waits may also be unloaded.
  EXPECT_EQ(host.Stop(), 1);
  RunCommand("ip address flush dev quorin0");
  EXPECT_EQ(host.Start(), 1);
  host.Unload();
  host.library = host::ServiceLibrary{};
  std::string why;
  ASSERT_TRUE(host::LoadServiceLibrary(LibraryPath(), &host.library, &why)) << why;
}

TEST_F(Address, IsFollowedWhileTheServiceRuns) {
  Add("10.68.0.2");
  EXPECT_EQ(host.Start(), 1);
  EXPECT_EQ(AnnouncedAddress(1), "10.68.0.2");
  // A lease with another address: one goes, one comes.
  RunCommand("ip address flush dev quorin0 && ip address add 10.68.0.7/24 dev quorin0");
  const std::int64_t deadline = platform::MonotonicMilliseconds() + 10000;
  int xid = 100;
  while (AnnouncedAddress(xid) != "10.68.0.7" && platform::MonotonicMilliseconds() < deadline) {
    xid += 50;
  }
  EXPECT_EQ(AnnouncedAddress(xid + 50), "10.68.0.7");
  EXPECT_NE(host.StatusTexts().find(RESTART), std::string::npos);
  // The group is joined on the new address's interface: a multicast is heard.
  SlpScanner scanner("10.68.0.8");
  scanner.SendByMulticast(Encode({5000}));
  EXPECT_NE(scanner.Receive(3000).find("(IPAddress=10.68.0.7)"), std::string::npos);
  SlpScanner other;
  other.Send(Encode({5000}), "10.68.0.7");
  EXPECT_NE(other.Receive(3000), "") << "the same request of another scanner";
  // A cable that is pulled, and many changes in a burst: quiet meanwhile, and well afterwards.
  RunCommand("ip address flush dev quorin0");
  platform::SleepMilliseconds(500);
  EXPECT_EQ(AnnouncedAddress(6000), "none");
  EXPECT_NE(host.StatusTexts().find(NO_NETWORK), std::string::npos);
  RunCommand("for i in 1 2 3 4 5 6 7 8 9; do ip address add 10.68.9.$i/24 dev quorin0; done");
  RunCommand("ip address flush dev quorin0 && ip address add 10.68.0.2/24 dev quorin0");
  platform::SleepMilliseconds(1500);
  EXPECT_EQ(AnnouncedAddress(7000), "10.68.0.2");
  EXPECT_EQ(host.Stop(), 1);
}

// The machine has several interfaces; the group is joined, and the address taken, where the default
// route leads.
TEST_F(Address, FollowsTheDefaultRoute) {
  Add("10.68.0.2");
  RunCommand(
      "ip link add other0 type veth peer name other1 && ip link set other0 up && "
      "ip link set other1 up && ip address add 10.99.0.2/24 dev other0");
  EXPECT_EQ(host.Start(), 1);
  EXPECT_EQ(AnnouncedAddress(1), "10.68.0.2");
  RunCommand("ip route replace default via 10.99.0.1 dev other0");
  platform::SleepMilliseconds(1000);
  EXPECT_EQ(AnnouncedAddress(1000), "10.99.0.2");
  EXPECT_EQ(host.StatusTexts(), RESTART);
  RunCommand("ip route add 10.123.0.0/16 via 10.99.0.1 dev other0");
  platform::SleepMilliseconds(500);
  EXPECT_EQ(host.StatusTexts(), RESTART) << "a route of no concern";
  EXPECT_EQ(host.Stop(), 1);
  RunCommand("ip link delete other0");
}

}  // namespace
}  // namespace zvqrn::test
