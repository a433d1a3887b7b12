#include "common/event_client.h"

#include <sys/socket.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <thread>
#include <utility>

namespace zvqrn::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr char ACCEPTED[] = "x-status : 0001\r\n";
constexpr char BUSY[] = "x-status : 2001\r\n";
constexpr int CONNECT_ATTEMPTS = 200;
constexpr std::chrono::milliseconds CONNECT_PAUSE(25);

double NanosecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double, std::nano>(Clock::now() - begin).count();
}

// The answer to a request whose answer's size is not known yet.
std::string ReceiveUnknown(const Descriptor& socket) {
  constexpr char LENGTH[] = "Content-Length : ";
  std::string answer;
  for (;;) {
    char buffer[4096];
    const long count = Checked(recv(socket.Get(), buffer, sizeof buffer, 0), "receiving");
    if (count == 0) {
      throw std::runtime_error("the service has closed the connection");
    }
    answer.append(buffer, static_cast<std::size_t>(count));
    const std::size_t headEnd = answer.find("\r\n\r\n");
    if (headEnd != std::string::npos) {
      const std::size_t at = answer.find(LENGTH);
      const std::size_t body =
          at < headEnd ? std::strtoul(answer.c_str() + at + sizeof LENGTH - 1, nullptr, 10) : 0;
      if (answer.size() == headEnd + 4 + body) {
        return answer;
      }
    }
  }
}

// Throws unless as many answers as that are as they should be.
void RequireAnswers(const EventClient& client, const std::string& answers, std::size_t count) {
  for (std::size_t at = 0; (at = answers.find(client.mark, at)) != std::string::npos && count > 0;
       at++) {
    count--;
  }
  if (count > 0) {
    throw std::runtime_error("not the answer that was expected: " + answers.substr(0, 300));
  }
}

void FirstExchange(EventClient* client) {
  SetUid(&client->request, ++client->sent);
  SendAll(client->socket, client->request.bytes);
  client->answer = ReceiveUnknown(client->socket);
}

}  // namespace

EventClient ConnectToService() {
  for (int attempt = 0; attempt < CONNECT_ATTEMPTS; attempt++) {
    EventClient client{ConnectTcp("127.0.0.1", EVENT_PORT), SingleRequest(), {}, 0, ACCEPTED};
    FirstExchange(&client);
    if (client.answer.find(BUSY) == std::string::npos) {
      RequireAnswers(client, client.answer, 1);
      return client;
    }
    std::this_thread::sleep_for(CONNECT_PAUSE);
  }
  throw std::runtime_error("the service stays busy with another connection");
}

void SendStartsFrom(EventClient* client) {
  client->request = StartRequest();
  FirstExchange(client);
  RequireAnswers(*client, client->answer, 1);
}

double Exchange(EventClient* client) {
  SetUid(&client->request, ++client->sent);
  const Clock::time_point begin = Clock::now();
  SendAll(client->socket, client->request.bytes);
  const bool received = ReceiveAll(client->socket, &client->answer);
  const double time = NanosecondsSince(begin);
  if (!received) {
    throw std::runtime_error("the service has closed the connection");
  }
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

}  // namespace zvqrn::bench
