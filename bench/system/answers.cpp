#include "common/event_client.h"
#include "peers/peers.h"
#include "system/run.h"
#include "system/starts.h"

namespace zvqrn::bench {
namespace {

// A client of the HTTP server: a request of the same size, with the body of a scanner's.
EventClient HttpClient(const EventClient& service) {
  EventClient client = PeerClient(HTTP_PEER_PORT, service.request, service.answer.size());
  const std::string body = RequestDocument();
  const std::string begin =
      "POST /PushScan HTTP/1.1\r\nHost: pc\r\nContent-Length: " + std::to_string(body.size()) +
      "\r\nx-uid: ";
  const std::string end = "\r\n\r\n" + body;
  const std::size_t digits = service.request.bytes.size() - begin.size() - end.size();
  client.request = {begin + std::string(digits, '0') + end, begin.size()};
  client.expected = "HTTP/1.1 200 OK\r\n";
  return client;
}

Contender Exchanging(const char* name, EventClient* client) {
  return {name, [client] { return Exchange(client); }};
}

Contender Pipelining(const char* name, EventClient* client) {
  constexpr std::size_t REQUESTS = 100;
  return {name, [client] { return ExchangePipelined(client, REQUESTS) / REQUESTS; }};
}

Contender Reconnecting(const char* name, EventClient* client, std::uint16_t port) {
  return {name, [client, port] { return Reconnect(client, port); }};
}

}  // namespace

void MeasureAnswers(const Settings& settings, const Placement& placement, const Effort& effort,
                    const std::string& prefix, Results* results) {
  EventClient ours = ConnectToService();
  const Child peers =
      StartPeers(settings, placement, {ours.request.bytes.size(), ours.answer.size(), 0});
  EventClient tcp = PeerClient(TCP_PEER_PORT, ours.request, ours.answer.size());
  EventClient http = HttpClient(ours);
  TakeTurns({Exchanging("tcp", &tcp), Exchanging("http", &http), Exchanging("ours", &ours)}, effort,
            prefix + "answer", results);
}

void MeasureExchanges(const Settings& settings, const Placement& placement, const Child& service,
                      Results* results) {
  const std::string prefix = Prefix(placement);
  MeasureAnswers(settings, placement, settings.answers, prefix, results);
  MeasureStartsWithData(settings, placement, service, results);
  EventClient ours = ConnectToService();
  const Child peers =
      StartPeers(settings, placement, {ours.request.bytes.size(), ours.answer.size(), 0});
  EventClient tcp = PeerClient(TCP_PEER_PORT, ours.request, ours.answer.size());
  EventClient http = HttpClient(ours);
  TakeTurns({Pipelining("http", &http), Pipelining("ours", &ours)}, settings.pipelined,
            prefix + "pipelined", results);
  HoldStarts(service, &ours);
  TakeTurns({Exchanging("tcp", &tcp), Exchanging("ours", &ours)}, settings.answers,
            prefix + "waiting", results);
  ReleaseStarts(service, &ours);
  TakeTurns({Reconnecting("tcp", &tcp, TCP_PEER_PORT), Reconnecting("ours", &ours, EVENT_PORT)},
            settings.reconnects, prefix + "reconnect", results);
}

}  // namespace zvqrn::bench
