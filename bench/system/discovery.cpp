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
constexpr std::size_t TURN = 5;
constexpr double TURN_PAUSE_SECONDS = 0.02;
constexpr std::size_t OUTSTANDING = 32;
constexpr double BURST_SECONDS = 2;  // after which no reply of a burst is due any more
constexpr int LOAD_SLICES = 3;
constexpr double LOAD_SLICE_SECONDS = 1;
constexpr std::size_t PENDING = 1000;

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
bool ReceiveReply(Searcher* searcher) {
  searcher->reply.resize(2000);
  const long size = recv(searcher->socket.Get(), searcher->reply.data(), searcher->reply.size(), 0);
  if (size < 0 && errno == EAGAIN) {
    return false;
  }
  searcher->reply.resize(static_cast<std::size_t>(Checked(size, "receiving a reply")));
  return searcher->reply.size() >= 12;
}

// The time from a request to the first reply to it; throws when none comes.
double FirstReply(Searcher* searcher, std::uint16_t port) {
  const Clock::time_point begin = Clock::now();
  SendSearch(searcher, port);
  do {
    if (!ReceiveReply(searcher)) {
      throw std::runtime_error("no reply to a discovery request");
    }
  } while (XidOf(searcher->reply) != searcher->xid);
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

Child StartUdpPeer(const Settings& settings, const Searcher& searcher) {
  Child peers = StartChild(
      {settings.folder + "/bench_peers", "1000", "1000", std::to_string(searcher.reply.size())});
  ReadReply(peers);
  return peers;
}

// Keeps a few requests outstanding until the time is over or `most` have been answered or lost;
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

void DrainReplies(Searcher* searcher) {
  const Deadline deadline(BURST_SECONDS);
  while (!deadline.Passed()) {
    ReceiveReply(searcher);
  }
}

}  // namespace

void MeasureFirstReplies(const Settings& settings, const std::vector<std::string>& host,
                         const std::string& prefix, Results* results) {
  const Child service = StartService(host);
  Searcher searcher;
  FirstReply(&searcher, SLP_PORT);
  RequireReply(searcher);
  const Child peers = StartUdpPeer(settings, searcher);
  std::vector<double> ours;
  std::vector<double> echo;
  const Deadline deadline(settings.discovery.seconds);
  while (!deadline.Passed() && ours.size() < settings.discovery.samples) {
    for (std::size_t i = 0; i < TURN; i++) {
      // By turns first, because who comes after a pause is slower.
      const bool oursFirst = (ours.size() + ours.size() / TURN) % 2 == 0;
      for (const bool isOurs : {oursFirst, !oursFirst}) {
        (isOurs ? ours : echo)
            .push_back(FirstReply(&searcher, isOurs ? SLP_PORT : UDP_THREAD_PEER_PORT));
      }
    }
    Pause(TURN_PAUSE_SECONDS);
  }
  results->figures[prefix + "discovery.first.ours"] = Median(ours);
  results->figures[prefix + "discovery.first.udp_thread"] = Median(echo);
  results->figures[prefix + "discovery.first_p99.ours"] = Percentile(ours, 99);
  results->figures[prefix + "discovery.first_p99.udp_thread"] = Percentile(echo, 99);
  results->figures[prefix + "discovery.samples"] = static_cast<double>(ours.size());
  StopService(service);
}

void MeasureDiscoveryLoad(const Settings& settings, Results* results) {
  const Child service = StartService(NativeHost(settings));
  Searcher searcher;
  FirstReply(&searcher, SLP_PORT);
  const Child peers = StartUdpPeer(settings, searcher);
  DrainReplies(&searcher);
  const Usage idle = ReadUsage(service);
  if (Flood(&searcher, SLP_PORT, settings.discovery.seconds, PENDING) == PENDING) {
    const Usage busy = ReadUsage(service);
    results->figures["discovery.pending_threads"] = busy.threads - idle.threads;
    results->figures["discovery.pending_kb"] = busy.residentKb - idle.residentKb;
  } else {
    results->missing["discovery.pending"] = "not all requests were answered in time";
  }
  std::size_t ours = 0;
  std::size_t echo = 0;
  for (int slice = 0; slice < LOAD_SLICES; slice++) {
    DrainReplies(&searcher);
    ours += Flood(&searcher, SLP_PORT, LOAD_SLICE_SECONDS, SIZE_MAX);
    DrainReplies(&searcher);
    echo += Flood(&searcher, UDP_THREAD_PEER_PORT, LOAD_SLICE_SECONDS, SIZE_MAX);
  }
  constexpr double SECONDS = LOAD_SLICES * LOAD_SLICE_SECONDS;
  results->figures["discovery.rate.ours"] = static_cast<double>(ours) / SECONDS;
  results->figures["discovery.rate.udp_thread"] = static_cast<double>(echo) / SECONDS;
  StopService(service);
}

}  // namespace zvqrn::bench
