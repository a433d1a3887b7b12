#include "scanner/panel/server.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "common/adapters.h"
#include "platform/clock.h"
#include "platform/thread.h"
#include "scanner/command/exit_code.h"

namespace zvqrn::scanner {

namespace {

constexpr std::int32_t BACKLOG = 64;
constexpr int VISITS_LIMIT = 48;  // connections at a time
constexpr std::size_t FOLLOWERS_LIMIT = 12;
constexpr std::int32_t REQUEST_TIME_MS = 5000;  // for a whole request to come
constexpr std::int32_t SEND_TIME_MS = 5000;     // for the browser to take some bytes
constexpr std::int32_t LINGER_MS = 200;
constexpr std::int32_t NEWS_REST_MS = 15;  // between two lots of news
constexpr std::int32_t SERVER_LOOK_MS = 250;
constexpr std::int32_t STILL_HERE_MS = 15000;
constexpr std::int32_t RECEIVE_SIZE = 16384;

std::string AnswerHead(const HttpAnswer& answer) {
  std::string head = "HTTP/1.1 " + std::to_string(answer.status) + " " + HttpReason(answer.status) +
                     "\r\nContent-Type: " + answer.type +
                     "\r\nConnection: close\r\nCache-Control: no-store"
                     "\r\nX-Content-Type-Options: nosniff\r\nReferrer-Policy: no-referrer"
                     "\r\nCross-Origin-Resource-Policy: same-origin"
                     "\r\nCross-Origin-Opener-Policy: same-origin\r\nX-Frame-Options: DENY"
                     "\r\nContent-Security-Policy: ";
  head +=
      answer.policy.empty() ? "default-src 'none'; frame-ancestors 'none'; sandbox" : answer.policy;
  if (!answer.fileName.empty()) {
    head += "\r\nContent-Disposition: attachment; filename=\"" + answer.fileName + "\"";
  }
  if (answer.status == HTTP_NO_SUCH_METHOD) {
    head += "\r\nAllow: GET, POST";
  }
  return head;
}

HttpAnswer Refusal(HttpStatus status) {
  HttpAnswer answer;
  answer.status = status;
  answer.type = "text/plain; charset=utf-8";
  answer.body = std::to_string(status) + " " + HttpReason(status) + "\n";
  if (status == HTTP_FORBIDDEN) {
    answer.body += "Open the address that quorin-scanner panel has printed, with its token.\n";
  }
  return answer;
}

}  // namespace

struct HttpServer::Visit {
  HttpServer* server;
  platform::SocketHandle socket;
};

HttpServer::~HttpServer() {
  if (listening_ > platform::NO_SOCKET) {
    platform::CloseSocket(listening_);
  }
}

void HttpServer::Listen(std::uint32_t address, std::uint16_t port) {
  listening_ = platform::OpenTcpSocket();
  if (listening_ <= platform::NO_SOCKET ||
      !tools::BindListeningAddress(listening_, address, port) ||
      !platform::StartListening(listening_, BACKLOG)) {
    throw Failure(EXIT_LOCAL_TROUBLE,
                  "cannot listen at " + tools::AddressText(address) + " TCP port " +
                      std::to_string(port) +
                      ": it is no address of this machine, or another program has the port");
  }
}

std::uint16_t HttpServer::Port() const {
  return static_cast<std::uint16_t>(platform::BoundPort(listening_));
}

void HttpServer::Serve(std::int32_t milliseconds) {
  if (platform::WaitReadable(listening_, milliseconds) != platform::SOCKET_READY) {
    return;
  }
  const platform::SocketHandle socket = platform::AcceptConnection(listening_);
  if (socket <= platform::NO_SOCKET) {
    return;
  }
  auto visit = std::make_unique<Visit>(Visit{this, socket});
  // Beyond the limit nobody is told anything: an answer would take a thread too.
  if (visits_.fetch_add(1) < VISITS_LIMIT &&
      platform::StartThread(Run, visit.get(), platform::STACK_FOR_HOST_CALLBACKS) != 0) {
    static_cast<void>(visit.release());
    return;
  }
  visits_.fetch_sub(1);
  platform::CloseSocket(socket);
}

void HttpServer::Run(void* argument) {
  const std::unique_ptr<Visit> visit(static_cast<Visit*>(argument));
  HttpServer* server = visit->server;
  try {
    server->Handle(visit->socket);
  } catch (const std::exception&) {
    // Memory has run out, or a lock cannot be had: this visitor goes without an answer.
  }
  platform::CloseSocket(visit->socket);
  server->visits_.fetch_sub(1);
}

void HttpServer::Handle(platform::SocketHandle socket) {
  const std::int64_t endMs = platform::MonotonicMilliseconds() + REQUEST_TIME_MS;
  std::string bytes;
  std::string block(RECEIVE_SIZE, '\0');
  HttpRequest request;
  HttpStatus status = HTTP_MORE;
  while (status == HTTP_MORE) {
    const std::int64_t leftMs = endMs - platform::MonotonicMilliseconds();
    if (ending_.load() || leftMs <= 0) {
      status = HTTP_TIME_OUT;
      break;
    }
    const auto waitMs = static_cast<std::int32_t>(std::min<std::int64_t>(leftMs, SERVER_LOOK_MS));
    if (platform::WaitReadable(socket, waitMs) == platform::SOCKET_TIMED_OUT) {
      continue;
    }
    const std::int32_t count = platform::ReceiveBytes(socket, block.data(), RECEIVE_SIZE);
    if (count == 0 || (count < 0 && count != platform::RECEIVE_NOTHING)) {
      return;
    }
    bytes.append(block, 0, static_cast<std::size_t>(std::max(count, 0)));
    status = ReadHttpRequest(bytes, &request);
  }
  if (status == HTTP_OK) {
    status = JudgeHttpRequest(request, service_.gate);
  }
  if (status != HTTP_OK) {
    SendAnswer(socket, Refusal(status));
  } else if (request.path == service_.streamPath && request.method == "GET") {
    Stream(socket, request);
  } else {
    SendAnswer(socket, service_.answer(request));
  }
}

// False when the browser has gone or takes nothing.
bool HttpServer::SendAll(platform::SocketHandle socket, const std::string& bytes) {
  std::size_t done = 0;
  std::int64_t lastMs = platform::MonotonicMilliseconds();
  while (done < bytes.size()) {
    const std::size_t left = std::min<std::size_t>(bytes.size() - done, std::size_t{1} << 20U);
    const std::int32_t count =
        platform::SendBytes(socket, bytes.data() + done, static_cast<std::int32_t>(left));
    if (count > 0) {
      done += static_cast<std::size_t>(count);
      lastMs = platform::MonotonicMilliseconds();
    } else if (count != platform::SEND_NO_ROOM || ending_.load() ||
               platform::MonotonicMilliseconds() - lastMs > SEND_TIME_MS) {
      return false;
    } else {
      platform::WaitWritable(socket, SERVER_LOOK_MS);
    }
  }
  return true;
}

void HttpServer::SendAnswer(platform::SocketHandle socket, const HttpAnswer& answer) {
  const std::string length = "\r\nContent-Length: " + std::to_string(answer.body.size());
  if (!SendAll(socket, AnswerHead(answer) + length + "\r\n\r\n" + answer.body)) {
    return;
  }
  // A socket that is closed with bytes unread resets the connection, and the answer is lost.
  platform::EndSending(socket);
  const std::int64_t endMs = platform::MonotonicMilliseconds() + LINGER_MS;
  char block[4096];
  for (std::int64_t nowMs = 0; (nowMs = platform::MonotonicMilliseconds()) < endMs;) {
    if (platform::WaitReadable(socket, static_cast<std::int32_t>(endMs - nowMs)) !=
        platform::SOCKET_READY) {
      return;
    }
    const std::int32_t count = platform::ReceiveBytes(socket, block, sizeof block);
    if (count == 0 || (count < 0 && count != platform::RECEIVE_NOTHING)) {
      return;
    }
  }
}

void HttpServer::Stream(platform::SocketHandle socket, const HttpRequest& request) {
  platform::Waker* waker = platform::MakeWaker();
  bool follows = false;
  if (waker != nullptr) {
    const Guard guard(followersLock_);
    follows = followers_.size() < FOLLOWERS_LIMIT;
    if (follows) {
      followers_.push_back(waker);
    }
  }
  if (follows) {
    // The browser repeats the number of the last event when it connects again.
    std::string after = HttpHeader(request, "last-event-id");
    after = after.empty() ? HttpQuery(request, "after") : after;
    std::uint64_t last = 0;
    for (const char digit : after.substr(0, 18)) {
      last = last * 10 + static_cast<std::uint64_t>(digit >= '0' && digit <= '9' ? digit - '0' : 0);
    }
    Follow(socket, waker, last);
    const Guard guard(followersLock_);
    followers_.erase(std::find(followers_.begin(), followers_.end(), waker));
  } else {
    SendAnswer(socket, Refusal(HTTP_NO_ROOM));
  }
  if (waker != nullptr) {
    platform::CloseWaker(waker);
  }
}

void HttpServer::Follow(platform::SocketHandle socket, platform::Waker* waker, std::uint64_t last) {
  HttpAnswer answer;
  answer.type = "text/event-stream";
  if (!SendAll(socket, AnswerHead(answer) + "\r\n\r\nretry: 1000\n\n")) {
    return;
  }
  std::int64_t sentMs = platform::MonotonicMilliseconds();
  char block[512];
  while (!ending_.load()) {
    std::string text = service_.news(&last);
    const std::int64_t nowMs = platform::MonotonicMilliseconds();
    if (text.empty() && nowMs - sentMs >= STILL_HERE_MS) {
      text = ": still here\n\n";
    }
    if (!text.empty()) {
      if (!SendAll(socket, text)) {
        return;
      }
      sentMs = nowMs;
      // What comes meanwhile goes out together.
      platform::SleepMilliseconds(NEWS_REST_MS);
      continue;
    }
    switch (platform::WaitReadableOrWoken(socket, waker, SERVER_LOOK_MS)) {
      case platform::WAKER_SOCKET_READY: {
        const std::int32_t count = platform::ReceiveBytes(socket, block, sizeof block);
        if (count == 0 || (count < 0 && count != platform::RECEIVE_NOTHING)) {
          return;
        }
        break;
      }
      case platform::WAKER_FAILED:
        return;
      default:
        break;
    }
  }
}

void HttpServer::TellNews() {
  const Guard guard(followersLock_);
  for (platform::Waker* follower : followers_) {
    platform::Wake(follower);
  }
}

void HttpServer::End() {
  ending_.store(true);
  TellNews();
}

}  // namespace zvqrn::scanner
