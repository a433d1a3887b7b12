// The PC's address comes, changes and goes, in a private network.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <vector>

#include "platform/thread.h"
#include "support/host.h"
#include "support/messages.h"
#include "support/patience.h"
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
    RunCommand("ip route replace default via 10.68.0.1 dev quorin0");
  }

  // One message of the kernel, and so one change however slow the machine is; a default route would
  // be another.
  static void Add(const std::string& address) {
    RunCommand("ip address replace " + address + "/24 dev quorin0");
  }

  // Starts a service up to the watcher's first look, which would take a change that comes earlier
  // for one of its own.
  void StartWatching() {
    EXPECT_EQ(host.Start(), 1);
    EXPECT_TRUE(OthersComeToRest());
  }

  void WaitForStatus(const std::string& texts) {
    EXPECT_TRUE(Eventually([&] { return host.StatusTexts() == texts; })) << host.StatusTexts();
  }

  static std::string AddressIn(const std::string& reply) {
    const std::size_t at = reply.find("(IPAddress=") + 11;
    return reply.empty() ? "none" : reply.substr(at, reply.find(')', at) - at);
  }

  // Scanners come to be told this address, by requests to loopback.
  static void WaitForAnnounced(const std::string& address) {
    SlpScanner scanner("127.0.0.9");
    std::string told;
    EXPECT_TRUE(Eventually([&] {
      return (told = AddressIn(scanner.Ask("127.0.0.1", 1000))) == address;
    })) << told
        << " instead of " << address;
  }

  // Multicasts come to be heard where this scanner sends them.
  static void WaitForMulticasts(SlpScanner* scanner, const std::string& address) {
    EXPECT_TRUE(Eventually([&] { return AddressIn(scanner->AskByMulticast(1000)) == address; }))
        << "the group is not joined where " << address << " is";
  }

  Host host{LibraryPath()};
};

TEST_F(Address, IsWaitedForAndServedWhenItComes) {
  // Told on this thread, in the middle of a start.
  std::atomic<std::int32_t> inStatus{-1};
  host.onStatus = [&] { inStatus = host.Start() * 10 + host.Stop(); };
  // No address to be served at either, though it is not the usual one.
  RunCommand("ip address add 127.0.1.1/8 dev lo");
  StartWatching();
  EXPECT_EQ(inStatus.load(), 0);
  EXPECT_EQ(host.StatusTexts(), NO_NETWORK);
  std::int32_t length = 0;
  EXPECT_EQ(host.library.getPcName(nullptr, &length), 0) << "it does not run yet";
  Add("10.68.0.2");
  WaitForStatus(NO_NETWORK + RESTART);
  EXPECT_EQ(host.library.getPcName(nullptr, &length), 1);
  {
    Scanner scanner;
    scanner.Send(Request(Identity("2.00", "1"), DOCUMENT_V2));
    EXPECT_NE(scanner.Receive().find("x-status : 0001\r\n"), std::string::npos);
  }
  WaitForAnnounced("10.68.0.2");
  EXPECT_EQ(host.Stop(), 1);
  EXPECT_EQ(host.Stop(), 0);
  RunCommand("ip address delete 127.0.1.1/8 dev lo");
}

TEST_F(Address, WaitEndsWithAStopOrANewStart) {
  EXPECT_EQ(host.Start(), 1);
  EXPECT_EQ(host.Stop(), 0) << "a service that waits is ended, with this result";
  Add("10.68.0.2");
  platform::SleepMilliseconds(400);
  EXPECT_EQ(host.StatusTexts(), NO_NETWORK) << "nobody waits any more";
  RunCommand("ip address flush dev quorin0");
  EXPECT_EQ(host.Start(), 1);
  StartWatching();  // anew
  EXPECT_EQ(host.StatusTexts(), NO_NETWORK + NO_NETWORK + NO_NETWORK);
  Add("10.68.0.2");
  WaitForStatus(NO_NETWORK + NO_NETWORK + NO_NETWORK + RESTART);
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
  WaitForAnnounced("10.68.0.2");
  // A lease with another address: one goes, one comes.
  RunCommand("ip address flush dev quorin0 && ip address add 10.68.0.7/24 dev quorin0");
  WaitForAnnounced("10.68.0.7");
  EXPECT_NE(host.StatusTexts().find(RESTART), std::string::npos);
  SlpScanner scanner("10.68.0.8");
  WaitForMulticasts(&scanner, "10.68.0.7");
  scanner.Send(Encode({5000}), "10.68.0.7");
  SlpScanner other;
  other.Send(Encode({5000}), "10.68.0.7");
  EXPECT_NE(other.Receive(PATIENCE_MS), "") << "the same request of another scanner";
  // A cable that is pulled, and many changes in a burst: quiet meanwhile, and well afterwards.
  const std::size_t before = host.StatusTexts().size();
  RunCommand("ip address flush dev quorin0");
  EXPECT_TRUE(Eventually([&] {
    const std::string texts = host.StatusTexts();
    return texts.size() > before && texts.rfind(NO_NETWORK) == texts.size() - NO_NETWORK.size();
  }));
  EXPECT_EQ(SlpScanner("127.0.0.9").Ask("127.0.0.1", 500), "");
  RunCommand("for i in 1 2 3 4 5 6 7 8 9; do ip address add 10.68.9.$i/24 dev quorin0; done");
  RunCommand("ip address flush dev quorin0 && ip address add 10.68.0.2/24 dev quorin0");
  WaitForAnnounced("10.68.0.2");
  EXPECT_EQ(host.Stop(), 1);
}

// An adapter that is switched off and on; the system tells nothing of its addresses then.
TEST_F(Address, GoesAndComesWithItsLink) {
  Add("10.68.0.2");
  StartWatching();
  RunCommand("ip link set quorin0 down");
  WaitForStatus(NO_NETWORK);
  RunCommand("ip link set quorin0 up");
  WaitForStatus(NO_NETWORK + RESTART);
}

// Descriptors run out while the address changes: it is read when there are some again.
TEST_F(Address, IsReadWhenTheSystemCanSayIt) {
  Add("10.68.0.2");
  StartWatching();
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit few{64, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &few);
  std::vector<int> taken;
  for (int next = 0; (next = fcntl(0, F_DUPFD_CLOEXEC, 0)) >= 0;) {
    taken.push_back(next);
  }
  RunCommand("ip address flush dev quorin0 && ip address add 10.68.0.7/24 dev quorin0");
  platform::SleepMilliseconds(1000);
  EXPECT_EQ(host.StatusTexts(), "");
  std::for_each(taken.begin(), taken.end(), close);
  setrlimit(RLIMIT_NOFILE, &before);
  WaitForStatus(RESTART);
  WaitForAnnounced("10.68.0.7");
}

// The machine has several interfaces; the group is joined, and the address taken, where the default
// route leads.
class TwoAdapters : public Address {
 protected:
  void SetUp() override {
    Address::SetUp();
    Add("10.68.0.2");
    RunCommand(
        "ip link add other0 type veth peer name other1 && ip link set other0 up && "
        "ip link set other1 up && ip address add 10.99.0.2/24 dev other0");
  }
  void TearDown() override {
    host.Stop();
    RunCommand("ip link set quorin0 up && ip link delete other0");
    Address::TearDown();
  }
};

TEST_F(TwoAdapters, AreToldApartByTheirRoutes) {
  const struct {
    const char* commands;
    const char* address;
  } cases[] = {
      {"ip route replace default via 10.68.0.1", "10.68.0.2"},
      {"ip route add default via 10.99.0.1 metric 100", "10.68.0.2"},
      {"ip route delete default via 10.68.0.1", "10.99.0.2"},
      {"ip route add default via 10.68.0.1 metric 200", "10.99.0.2"},
      {"ip route delete default via 10.99.0.1 && ip route add 0.0.0.0/1 via 10.99.0.1",
       "10.68.0.2"},
      {"ip route delete 0.0.0.0/1; ip route delete default; ip link set quorin0 down", "10.99.0.2"},
  };
  for (const auto& c : cases) {
    RunCommand(c.commands);
    EXPECT_EQ(host.Start(), 1);
    SlpScanner scanner("127.0.0.9");
    EXPECT_EQ(AddressIn(scanner.Ask("127.0.0.1")), c.address) << c.commands;
    EXPECT_EQ(host.Stop(), 1);
  }
}

TEST_F(TwoAdapters, AreFollowed) {
  RunCommand("ip route replace default via 10.68.0.1");
  SlpScanner scanner("10.99.0.8", "other0");
  SlpScanner left("10.68.0.8");
  EXPECT_EQ(host.Start(), 1);
  WaitForAnnounced("10.68.0.2");
  EXPECT_EQ(scanner.AskByMulticast(300), "") << "the group is joined on the first adapter";
  EXPECT_TRUE(OthersComeToRest());
  // The first news that the service gets is of no concern, and neither is the last.
  RunCommand("ip route add 10.122.0.0/16 via 10.99.0.1");
  platform::SleepMilliseconds(300);
  RunCommand("ip route replace default via 10.99.0.1");
  WaitForStatus(RESTART);
  WaitForAnnounced("10.99.0.2");
  WaitForMulticasts(&scanner, "10.99.0.2");
  EXPECT_EQ(left.AskByMulticast(300), "") << "the group is left where the service was";
  RunCommand("ip route add 10.123.0.0/16 via 10.99.0.1");
  platform::SleepMilliseconds(500);
  EXPECT_EQ(host.StatusTexts(), RESTART) << "a route of no concern";
  RunCommand("ip route replace default via 10.99.0.7");
  WaitForStatus(RESTART + RESTART);
  EXPECT_EQ(host.Stop(), 1);
}

}  // namespace
}  // namespace zvqrn::test
