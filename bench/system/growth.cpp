// Growth is told by two hosts that take turns: one that has served many requests or holds many open
// STARTs, and one that has served a few or holds a few.  The second has a network of its own, since
// the service's port is fixed.
#include <fcntl.h>
#include <sched.h>

#include "common/event_client.h"
#include "system/run.h"

namespace zvqrn::bench {
namespace {

constexpr std::size_t FEW = 10;
constexpr std::size_t MANY_REQUESTS = 100000;
constexpr std::size_t MANY_STARTS = 10000;
constexpr std::size_t BATCH = 500;

// After many requests at once the system is busy for a while with the threads that served them.
constexpr double SETTLE_SECONDS = 2;

// While it lives the calling thread makes its sockets in the network of a process.
class InNetworkOf {
 public:
  explicit InNetworkOf(const Child& process)
      : own_(Open("/proc/self/ns/net")),
        theirs_(Open("/proc/" + std::to_string(process.id) + "/ns/net")) {
    Checked(setns(theirs_.Get(), CLONE_NEWNET), "entering a network");
  }
  ~InNetworkOf() { setns(own_.Get(), CLONE_NEWNET); }
  InNetworkOf(const InNetworkOf&) = delete;
  InNetworkOf& operator=(const InNetworkOf&) = delete;

 private:
  static Descriptor Open(const std::string& path) {
    return Descriptor(static_cast<int>(
        Checked(open(path.c_str(), O_RDONLY | O_CLOEXEC), "looking for a network")));
  }

  Descriptor own_;
  Descriptor theirs_;
};

EventClient ConnectTo(const Child& host) {
  const InNetworkOf network(host);
  return ConnectToService();
}

// Sends so many further requests; false, with the reason told, when that takes too long.
bool SendMore(EventClient* client, std::size_t more, double seconds, const std::string& name,
              Results* results) {
  const Deadline deadline(seconds);
  const std::size_t count = client->sent + more;
  while (client->sent < count && !deadline.Passed()) {
    ExchangePipelined(client, count - client->sent < BATCH ? count - client->sent : BATCH);
  }
  if (client->sent < count) {
    results->missing[name] =
        "only " + std::to_string(client->sent) + " were reached in the time there is";
    return false;
  }
  Pause(SETTLE_SECONDS);
  return true;
}

Contender Exchanging(const char* name, EventClient* client, const Child* host) {
  return {name, [client] { return Exchange(client); }, host};
}

void MeasureServed(const Settings& settings, const Child& used, const Child& fresh,
                   const std::string& name, Results* results) {
  EventClient many = ConnectTo(used);
  if (!SendMore(&many, MANY_REQUESTS, settings.growthSeconds, name, results)) {
    return;
  }
  Effort slice = settings.growth;
  slice.slices = 1;
  for (std::size_t i = 0; i < settings.growth.slices; i++) {
    EventClient few = ConnectTo(fresh);
    while (few.sent < FEW) {
      Exchange(&few);
    }
    TakeTurns({Exchanging("few", &few, &fresh), Exchanging("many", &many, &used)}, slice, name,
              results);
  }
}

void MeasureOpenStarts(const Settings& settings, const Child& used, const Child& fresh,
                       const std::string& name, Results* results) {
  EventClient many = ConnectTo(used);
  EventClient few = ConnectTo(fresh);
  for (EventClient* client : {&many, &few}) {
    SwitchRequest(client, StartRequest());
    if (!SendMore(client, (client == &many ? MANY_STARTS : FEW) - 1, settings.growthSeconds, name,
                  results)) {
      return;
    }
    SwitchRequest(client, SingleRequest());
  }
  TakeTurns({Exchanging("few", &few, &fresh), Exchanging("many", &many, &used)}, settings.growth,
            name, results);
}

}  // namespace

void MeasureGrowth(const Settings& settings, const Placement& placement, Results* results) {
  std::vector<std::string> inOwnNetwork = NativeHost(settings);
  inOwnNetwork.insert(inOwnNetwork.begin(), "scripts/private_network.sh");
  const Child fresh = StartService(inOwnNetwork, placement.hostCore);
  const Child used = StartService(NativeHost(settings), placement.hostCore);
  MeasureServed(settings, used, fresh, "growth.served", results);
  MeasureOpenStarts(settings, used, fresh, "growth.open", results);
  StopService(used);
  StopService(fresh);
}

}  // namespace zvqrn::bench
