#include "system/starts.h"

#include <chrono>
#include <stdexcept>

namespace zvqrn::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t HELD = 100;
constexpr char ACCEPTED[] = "x-status : 0001\r\n";

double NanosecondsBetween(Clock::time_point begin, Clock::time_point end) {
  return std::chrono::duration<double, std::nano>(end - begin).count();
}

// Throws unless so many of the messages are answers that accept.
void RequireAccepted(const std::string& messages, std::size_t count) {
  std::size_t found = 0;
  for (std::size_t at = 0; (at = messages.find(ACCEPTED, at)) != std::string::npos; at++) {
    found++;
  }
  if (found != count) {
    throw std::runtime_error("not the answers that were expected: " + messages.substr(0, 400));
  }
}

// When the last bytes came, after the first byte of the START was sent.
struct Arrivals {
  double data;
  double answer;
};

void RequireData(const EventClient& client, const std::string& data) {
  const std::string parent = "x-parent-uid : " + UidText(client.sent) + "\r\n";
  if (data.rfind("POST /PushScan HTTP/1.0\r\n", 0) != 0 || data.find(parent) == std::string::npos ||
      data.substr(data.size() - HOST_DATA_SIZE) != HOST_DATA) {
    throw std::runtime_error("not the data that was expected: " + data);
  }
}

// Closes the last START.
void SendEnd(EventClient* client) {
  RequestText end = EndRequest();
  SetParentUid(&end, client->sent);
  SetUid(&end, ++client->sent);
  SendAll(client->socket, end.bytes);
  RequireAccepted(ReceiveMessages(client->socket, 1), 1);
}

// Sends a START, takes data and answer, and closes it; `messages` gets what came.  The size of the
// data's head varies, since a millisecond has one to three digits.
Arrivals ExchangeStart(EventClient* client, std::string* messages) {
  Clock::time_point ends[2];
  std::size_t count = 0;
  std::size_t dataSize = 0;
  const Clock::time_point begin = Clock::now();
  SendNext(client);
  *messages = ReceiveMessages(client->socket, 2, [&](std::size_t end) {
    ends[count] = Clock::now();
    dataSize = count++ == 0 ? end : dataSize;
  });
  RequireData(*client, messages->substr(0, dataSize));
  RequireAccepted(messages->substr(dataSize), 1);
  SendEnd(client);
  return {NanosecondsBetween(begin, ends[0]), NanosecondsBetween(begin, ends[1])};
}

}  // namespace

void HoldStarts(const Child& service, EventClient* client) {
  Order(service, "hold");
  RequestText start = StartRequest();
  for (std::size_t i = 0; i < HELD; i++) {
    SetUid(&start, ++client->sent);
    SendAll(client->socket, start.bytes);
  }
  Order(service, "held " + std::to_string(HELD));
}

void ReleaseStarts(const Child& service, EventClient* client) {
  Order(service, "release");
  RequireAccepted(ReceiveMessages(client->socket, HELD), HELD);
}

void MeasureStartsWithData(const Settings& settings, const Placement& placement,
                           const Child& service, Results* results) {
  Order(service, "send");
  EventClient ours = ConnectToService();
  ours.request = StartRequest();
  std::string messages;
  ExchangeStart(&ours, &messages);
  const Child peers =
      StartPeers(settings, placement, {ours.request.bytes.size(), messages.size(), 0});
  EventClient tcp = PeerClient(TCP_PEER_PORT, ours.request, messages.size());
  TakeTurns({{"tcp", [&] { return Exchange(&tcp); }},
             {"data", [&] { return ExchangeStart(&ours, &messages).data; }},
             {"answer", [&] { return ExchangeStart(&ours, &messages).answer; }}},
            settings.starts, Prefix(placement) + "start_data", results);
}

}  // namespace zvqrn::bench
