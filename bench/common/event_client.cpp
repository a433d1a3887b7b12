#include "common/event_client.h"

#include <sys/socket.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

namespace zvqrn::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr char ACCEPTED[] = "x-status : 0001\r\n";
constexpr char BUSY[] = "x-status : 2001\r\n";
constexpr int CONNECT_ATTEMPTS = 400;
constexpr std::chrono::milliseconds CONNECT_PAUSE(25);
constexpr double RECONNECT_PATIENCE_NS = 10e9;

double NanosecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double, std::nano>(Clock::now() - begin).count();
}

[[noreturn]] void RefuseAnswer(std::string_view answer) {
  throw std::runtime_error("not the answer that was expected: " +
                           std::string(answer.substr(0, 400)));
}

// The size of the message that begins there; 0 when its head is not whole.
std::size_t MessageSize(const std::string& bytes, std::size_t at) {
  constexpr char LENGTH[] = "Content-Length : ";
  const std::size_t headEnd = bytes.find("\r\n\r\n", at);
  if (headEnd == std::string::npos) {
    return 0;
  }
  const std::size_t length = bytes.find(LENGTH, at);
  const std::size_t body =
      length < headEnd ? std::strtoul(bytes.c_str() + length + sizeof LENGTH - 1, nullptr, 10) : 0;
  return headEnd + 4 + body - at;
}

// An exchange whose answer's size is not known yet; the answer becomes the pattern of all others.
// False when the service is busy.
bool FirstExchange(EventClient* client) {
  SendNext(client);
  client->answer = ReceiveMessages(client->socket, 1);
  if (client->answer.find(BUSY) != std::string::npos) {
    return false;
  }
  client->expected = client->answer;
  client->uidAt = client->answer.find(UidText(client->sent));
  if (client->uidAt == std::string::npos || client->answer.find(ACCEPTED) == std::string::npos) {
    RefuseAnswer(client->answer);
  }
  return true;
}

bool AsExpected(const EventClient& client, std::string_view answer) {
  const std::string_view expected = client.expected;
  if (client.uidAt == std::string::npos) {
    return answer.substr(0, expected.size()) == expected;
  }
  const std::size_t afterUid = client.uidAt + UID_SIZE;
  return answer.substr(0, client.uidAt) == expected.substr(0, client.uidAt) &&
         answer.substr(afterUid) == expected.substr(afterUid);
}

// The same; false when the service says that it is busy, which takes fewer bytes.
bool ReceiveUnlessBusy(EventClient* client) {
  std::string* answer = &client->answer;
  for (std::size_t filled = 0; filled < answer->size();) {
    const long count =
        Checked(recv(client->socket.Get(), answer->data() + filled, answer->size() - filled, 0),
                "receiving");
    if (count == 0) {
      throw std::runtime_error("the connection was closed instead of an answer");
    }
    filled += static_cast<std::size_t>(count);
    if (filled < answer->size() &&
        std::string_view(answer->data(), filled).find(BUSY) != std::string_view::npos) {
      return false;
    }
  }
  return true;
}

}  // namespace

EventClient ConnectToService() {
  for (int attempt = 0; attempt < CONNECT_ATTEMPTS; attempt++) {
    EventClient client;
    client.socket = ConnectTcp("127.0.0.1", EVENT_PORT);
    client.request = SingleRequest();
    if (FirstExchange(&client)) {
      return client;
    }
    std::this_thread::sleep_for(CONNECT_PAUSE);
  }
  throw std::runtime_error("the service stays busy with another connection");
}

EventClient PeerClient(std::uint16_t port, const RequestText& request, std::size_t answerSize) {
  EventClient client;
  client.socket = ConnectTcp("127.0.0.1", port);
  client.request = request;
  client.answer.resize(answerSize);
  return client;
}

void SwitchRequest(EventClient* client, RequestText request) {
  client->request = std::move(request);
  if (!FirstExchange(client)) {
    RefuseAnswer(client->answer);
  }
}

void SendNext(EventClient* client) {
  SetUid(&client->request, ++client->sent);
  SendAll(client->socket, client->request.bytes);
}

void ReceiveAnswer(EventClient* client) {
  if (!ReceiveAll(client->socket, &client->answer)) {
    throw std::runtime_error("the connection was closed instead of an answer");
  }
}

std::string ReceiveMessages(const Descriptor& socket, std::size_t count,
                            const std::function<void(std::size_t end)>& onEach) {
  std::string bytes;
  std::size_t end = 0;
  while (count > 0) {
    char buffer[4096];
    const long received = Checked(recv(socket.Get(), buffer, sizeof buffer, 0), "receiving");
    if (received == 0) {
      throw std::runtime_error("the service has closed the connection");
    }
    bytes.append(buffer, static_cast<std::size_t>(received));
    for (std::size_t size = 0; count > 0 && (size = MessageSize(bytes, end)) > 0; count--) {
      if (end + size > bytes.size()) {
        break;
      }
      end += size;
      if (onEach) {
        onEach(end);
      }
    }
  }
  if (end != bytes.size()) {
    throw std::runtime_error("the service has said more than it should: " + bytes.substr(end));
  }
  return bytes;
}

double Exchange(EventClient* client) {
  const Clock::time_point begin = Clock::now();
  SendNext(client);
  ReceiveAnswer(client);
  const double time = NanosecondsSince(begin);
  RequireAnswers(*client, client->answer, 1);
  return time;
}

double ExchangePipelined(EventClient* client, std::size_t count) {
  std::string requests;
  for (std::size_t i = 0; i < count; i++) {
    SetUid(&client->request, ++client->sent);
    requests += client->request.bytes;
  }
  std::string answers(count * client->answer.size(), '\0');
  const Clock::time_point begin = Clock::now();
  ExchangeAll(client->socket, requests, &answers);
  const double time = NanosecondsSince(begin);
  RequireAnswers(*client, answers, count);
  return time;
}

double Reconnect(EventClient* client, std::uint16_t port) {
  const Clock::time_point begin = Clock::now();
  do {
    client->socket = Descriptor();
    client->socket = ConnectTcp("127.0.0.1", port);
    SendNext(client);
    if (ReceiveUnlessBusy(client)) {
      const double time = NanosecondsSince(begin);
      RequireAnswers(*client, client->answer, 1);
      return time;
    }
  } while (NanosecondsSince(begin) < RECONNECT_PATIENCE_NS);
  throw std::runtime_error("the service stays busy with the connection that has ended");
}

void RequireAnswers(const EventClient& client, std::string_view answers, std::size_t count) {
  const std::size_t size = client.answer.size();
  const std::uint64_t first = client.sent - count + 1;
  std::vector<bool> seen(count, false);
  for (std::size_t i = 0; i < count; i++) {
    const std::string_view answer = answers.substr(i * size, size);
    if (!AsExpected(client, answer)) {
      RefuseAnswer(answer);
    }
    if (client.uidAt == std::string::npos) {
      continue;
    }
    const std::uint64_t uid = ReadUid(answer, client.uidAt);
    if (uid < first || uid > client.sent || seen[uid - first]) {
      RefuseAnswer(answer);
    }
    seen[uid - first] = true;
  }
}

}  // namespace zvqrn::bench
