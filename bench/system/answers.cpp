#include <algorithm>

#include "common/event_client.h"
#include "common/statistics.h"
#include "peers/peers.h"
#include "system/run.h"

namespace zvqrn::bench {
namespace {

// Exchanges of one kind in a row before the next kind's turn: as few as keep caches and clock
// frequencies fair.
constexpr std::size_t TURN = 10;
constexpr std::size_t PIPELINED = 100;
constexpr std::size_t PIPELINED_TURNS = 200;

// A kind of exchange and its times so far.
struct Contender {
  std::string name;
  EventClient client;
  std::vector<double> times{};
  double pipelinedTime = 0;
};

// A client of a peer whose requests and answers have the size that the service's have.
EventClient PeerClient(std::uint16_t port, const EventClient& service) {
  return EventClient{ConnectTcp("127.0.0.1", port), service.request, service.answer, 0};
}

// A request to an HTTP server with the size and the body of a scanner's.
RequestText HttpRequest(std::size_t size) {
  const std::string body = RequestDocument();
  const std::string begin =
      "POST /PushScan HTTP/1.1\r\nHost: pc\r\nContent-Length: " + std::to_string(body.size()) +
      "\r\nx-uid: ";
  const std::string end = "\r\n\r\n" + body;
  return {begin + std::string(size - begin.size() - end.size(), '0') + end, begin.size()};
}

void RunTurns(std::vector<Contender>* contenders, const Limits& limits) {
  const Deadline deadline(limits.seconds);
  while (!deadline.Passed() && contenders->front().times.size() < limits.samples) {
    for (Contender& contender : *contenders) {
      for (std::size_t i = 0; i < TURN; i++) {
        contender.times.push_back(Exchange(&contender.client));
      }
    }
  }
}

void RunPipelined(Contender* ours, Contender* http, const Limits& limits, const std::string& prefix,
                  Results* results) {
  const Deadline deadline(limits.seconds);
  std::size_t turns = 0;
  for (; turns == 0 || (!deadline.Passed() && turns < PIPELINED_TURNS); turns++) {
    for (Contender* contender : {ours, http}) {
      contender->pipelinedTime += ExchangePipelined(&contender->client, PIPELINED);
    }
  }
  for (Contender* contender : {ours, http}) {
    results->figures[prefix + "rate.pipelined." + contender->name] =
        static_cast<double>(turns * PIPELINED) / (contender->pipelinedTime / 1e9);
  }
}

void Tell(const Contender& contender, const std::string& prefix, Results* results) {
  double sum = 0;
  for (const double time : contender.times) {
    sum += time;
  }
  auto put = [&](const std::string& what, double value) {
    results->figures[prefix + what + "." + contender.name] = value;
  };
  put("answer.median", Median(contender.times));
  put("answer.p95", Percentile(contender.times, 95));
  put("answer.p99", Percentile(contender.times, 99));
  put("answer.samples", static_cast<double>(contender.times.size()));
  put("rate.sequential", static_cast<double>(contender.times.size()) / (sum / 1e9));
}

}  // namespace

void MeasureAnswers(const Settings& settings, const std::vector<std::string>& host,
                    const std::string& prefix, Results* results) {
  const Child service = StartService(host);
  EventClient ours = ConnectToService();
  const Child peers =
      StartChild({settings.folder + "/bench_peers", std::to_string(ours.request.bytes.size()),
                  std::to_string(ours.answer.size()), "100"});
  ReadReply(peers);
  EventClient http = PeerClient(HTTP_PEER_PORT, ours);
  http.request = HttpRequest(ours.request.bytes.size());
  http.mark = "HTTP/1.1 200 OK\r\n";
  std::vector<Contender> contenders;
  contenders.push_back({"tcp", PeerClient(TCP_PEER_PORT, ours)});
  contenders.push_back({"tcp_thread", PeerClient(TCP_THREAD_PEER_PORT, ours)});
  contenders.push_back({"http", std::move(http)});
  contenders.push_back({"ours", std::move(ours)});
  RunTurns(&contenders, settings.answers);
  for (const Contender& contender : contenders) {
    Tell(contender, prefix, results);
  }
  RunPipelined(&contenders[3], &contenders[2], settings.answers, prefix, results);
  contenders.clear();
  StopService(service);
}

}  // namespace zvqrn::bench
