#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>

#include "common/statistics.h"
#include "peers/peers.h"
#include "scanner/wire/attribute_message.h"
#include "system/run.h"

namespace zvqrn::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint16_t SLP_PORT = 2968;
constexpr long LOST_AFTER_MS = 200;
constexpr double PATIENCE_SECONDS = 10;
constexpr std::size_t OUTSTANDING = 32;
// A burst's datagrams are 0.5 s apart: in the shorter time none is sent but first replies, as the
// echo's; in the longer one half of the requests are answered a second time.
constexpr double FIRST_REPLIES_SECONDS = 0.4;
constexpr double BURSTS_SECONDS = 1;
// Of a slice, before their XIDs come again.
constexpr std::size_t MOST_REQUESTS = 60000;
constexpr std::size_t PENDING = 1000;
constexpr int SILENT_WAITS = 4;  // after which no datagram of a burst is due any more

const char* Environment(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr) {
    throw std::runtime_error("run this with scripts/private_network.sh --with-scanner");
  }
  return value;
}

// A scanner at its own address, where replies go, whoever is asked.
struct Searcher {
  Descriptor socket = BindUdp(Environment("QUORIN_SCANNER_ADDRESS"), SLP_PORT, LOST_AFTER_MS);
  std::uint16_t xid = 0;
  std::string request{};
  std::string reply{};  // the last one
  std::array<bool, 65536> answered{};
};

std::uint16_t XidOf(const std::string& bytes) {
  return static_cast<std::uint16_t>((bytes[10] & 0xFF) << 8 | (bytes[11] & 0xFF));
}

void SendSearch(Searcher* searcher, std::uint16_t port) {
  scanner::AttributeRequest request;
  request.xid = ++searcher->xid;
  searcher->request = scanner::RequestBytes(request);
  searcher->answered[searcher->xid] = false;
  SendUdp(searcher->socket, searcher->request, Environment("QUORIN_PRIVATE_ADDRESS"), port);
}

// Receives one datagram; false when none comes in time.
bool ReceiveReply(Searcher* searcher, int flags = 0) {
  searcher->reply.resize(2000);
  const long size =
      recv(searcher->socket.Get(), searcher->reply.data(), searcher->reply.size(), flags);
  if (size < 0 && errno == EAGAIN) {
    return false;
  }
  searcher->reply.resize(static_cast<std::size_t>(Checked(size, "receiving a reply")));
  return searcher->reply.size() >= 12;
}

// The time from a request to the first reply to it; throws when none comes.  Earlier bursts are
// read first.
double FirstReply(Searcher* searcher, std::uint16_t port) {
  while (ReceiveReply(searcher, MSG_DONTWAIT)) {
  }
  const Deadline patience(PATIENCE_SECONDS);
  const Clock::time_point begin = Clock::now();
  SendSearch(searcher, port);
  while (!ReceiveReply(searcher) || XidOf(searcher->reply) != searcher->xid) {
    if (patience.Passed()) {
      throw std::runtime_error("no reply to a discovery request");
    }
  }
  return std::chrono::duration<double, std::nano>(Clock::now() - begin).count();
}

void RequireReply(const Searcher& searcher) {
  scanner::AttributeRequest request;
  request.xid = searcher.xid;
  scanner::PcDescription pc;
  const std::string fault = scanner::ReadReply(searcher.reply, request, &pc);
  if (!fault.empty()) {
    throw std::runtime_error("a wrong discovery reply: " + fault);
  }
}

// Asks the service for a first reply, and checks every byte of it.
void RequireService(Searcher* searcher) {
  FirstReply(searcher, SLP_PORT);
  RequireReply(*searcher);
}

Child StartUdpPeer(const Settings& settings, const Placement& placement, const Searcher& searcher) {
  return StartPeers(settings, placement, {1000, 1000, searcher.reply.size()});
}

// Keeps a few requests outstanding until `most` have been answered or lost, or the time is over;
// gives the number of requests answered.
std::size_t Flood(Searcher* searcher, std::uint16_t port, double seconds, std::size_t most) {
  const Deadline deadline(seconds);
  std::size_t sent = 0;
  std::size_t answered = 0;
  std::size_t lost = 0;
  const auto first = static_cast<std::uint16_t>(searcher->xid + 1);
  while (answered + lost < most && !deadline.Passed()) {
    while (sent - answered - lost < OUTSTANDING && sent < most) {
      SendSearch(searcher, port);
      sent++;
    }
    if (!ReceiveReply(searcher)) {
      lost = sent - answered;
      continue;
    }
    const std::uint16_t xid = XidOf(searcher->reply);
    const bool own = static_cast<std::uint16_t>(xid - first) < sent;
    if (own && !searcher->answered[xid] && answered + lost < sent) {
      searcher->answered[xid] = true;
      answered++;
    }
  }
  return answered;
}

// Waits until no reply is due any more; the service drops a request whose XID is that of one in
// progress.
void DrainReplies(Searcher* searcher) {
  for (int silent = 0; silent < SILENT_WAITS; silent++) {
    while (ReceiveReply(searcher)) {
      silent = 0;
    }
  }
}

double AnsweredPerSecond(Searcher* searcher, std::uint16_t port, double seconds) {
  const auto begin = Clock::now();
  const std::size_t answered = Flood(searcher, port, seconds, MOST_REQUESTS);
  return static_cast<double>(answered) /
         std::chrono::duration<double>(Clock::now() - begin).count();
}

void MeasureRates(Searcher* searcher, double seconds, int slices, const std::string& name,
                  Results* results) {
  for (int slice = 0; slice < slices; slice++) {
    results->series[name + ".udp"].push_back(AnsweredPerSecond(searcher, UDP_PEER_PORT, seconds));
    results->series[name + ".ours"].push_back(AnsweredPerSecond(searcher, SLP_PORT, seconds));
    DrainReplies(searcher);
  }
}

void MeasurePending(Searcher* searcher, const Child& service, const std::string& prefix,
                    Results* results) {
  const Usage idle = ReadUsage(service);
  if (Flood(searcher, SLP_PORT, BURSTS_SECONDS, PENDING) < PENDING) {
    results->missing[prefix + "pending"] =
        "not all requests were answered before the first bursts were over";
    return;
  }
  const Usage busy = ReadUsage(service);
  results->series[prefix + "pending_threads"].push_back(busy.threads - idle.threads);
  results->series[prefix + "pending_kb"].push_back(busy.residentKb - idle.residentKb);
}

}  // namespace

void MeasureFirstReplies(const Settings& settings, const Placement& placement, const Effort& effort,
                         const std::string& prefix, Results* results) {
  Searcher searcher;
  RequireService(&searcher);
  const Child peers = StartUdpPeer(settings, placement, searcher);
  TakeTurns({{"udp", [&] { return FirstReply(&searcher, UDP_PEER_PORT); }},
             {"ours",
              [&] {
                const double time = FirstReply(&searcher, SLP_PORT);
                RequireReply(searcher);
                return time;
              }}},
            effort, prefix + "discovery.first", results);
}

void MeasureDiscoveryLoad(const Settings& settings, const Placement& placement,
                          const Child& service, Results* results) {
  const std::string prefix = Prefix(placement) + "discovery.";
  Searcher searcher;
  RequireService(&searcher);
  const Child peers = StartUdpPeer(settings, placement, searcher);
  DrainReplies(&searcher);
  MeasurePending(&searcher, service, prefix, results);
  DrainReplies(&searcher);
  MeasureRates(&searcher, FIRST_REPLIES_SECONDS, settings.loadSlices, prefix + "first_rate",
               results);
  MeasureRates(&searcher, BURSTS_SECONDS, settings.burstSlices, prefix + "burst_rate", results);
}

}  // namespace zvqrn::bench
