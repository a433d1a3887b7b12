#include "scanner/panel/load.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "common/adapters.h"
#include "common/text.h"
#include "common/vocabulary.h"
#include "platform/clock.h"
#include "platform/thread.h"
#include "scanner/wire/exchange.h"
#include "scanner/wire/reply_socket.h"

namespace zvqrn::scanner {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::int32_t TELL_EVERY_MS = 250;
constexpr std::int32_t LOAD_REST_MS = 20;  // after a connection that was of no use
constexpr std::int32_t ANSWER_TIME_MS = 2000;
constexpr double PLAIN_PER_SECOND = 50;
constexpr std::size_t KINDS_OF_ANSWERS = 16;  // that are counted apart
constexpr std::size_t SHOWN_OF_AN_ANSWER = 200;
constexpr std::int32_t PLAIN_ANSWER_SIZE = 491;  // as long as a usual answer
constexpr double CLASSES_A_DOUBLING = 4;

double MicrosecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

// The other side of the plain exchange: takes a connection, and answers so many bytes with others.
struct PlainServer {
  platform::SocketHandle listening = platform::NO_SOCKET;
  std::size_t requestSize = 0;
  std::atomic<bool> ends{false};
  std::atomic<bool> ended{false};
};

// Waits until so many bytes have come; false when the connection ends or nobody wants them any
// more.
bool TakeBytes(platform::SocketHandle socket, std::size_t size, const std::atomic<bool>& ends) {
  char block[4096];
  while (size > 0 && !ends.load()) {
    if (platform::WaitReadable(socket, 100) != platform::SOCKET_READY) {
      continue;
    }
    const auto most = static_cast<std::int32_t>(std::min(size, sizeof block));
    const std::int32_t count = platform::ReceiveBytes(socket, block, most);
    if (count == 0 || (count < 0 && count != platform::RECEIVE_NOTHING)) {
      return false;
    }
    size -= static_cast<std::size_t>(std::max(count, 0));
  }
  return size == 0;
}

void ServePlainly(void* argument) {
  auto* server = static_cast<PlainServer*>(argument);
  platform::SocketHandle socket = platform::NO_SOCKET;
  while (!server->ends.load() && socket <= platform::NO_SOCKET) {
    if (platform::WaitReadable(server->listening, 100) == platform::SOCKET_READY) {
      socket = platform::AcceptConnection(server->listening);
    }
  }
  const std::string answer(static_cast<std::size_t>(PLAIN_ANSWER_SIZE), 'a');
  if (socket > platform::NO_SOCKET) {
    while (TakeBytes(socket, server->requestSize, server->ends)) {
      platform::SendBytes(socket, answer.data(), PLAIN_ANSWER_SIZE);
    }
    platform::CloseSocket(socket);
  }
  server->ended.store(true);
}

}  // namespace

// ---- Histogram -----------------------------------------------------------------------------------

double Histogram::EndOf(std::size_t index) {
  return std::exp2(static_cast<double>(index + 1) / CLASSES_A_DOUBLING);
}

void Histogram::Add(double microseconds) {
  const double place = std::log2(std::max(microseconds, 1.0)) * CLASSES_A_DOUBLING;
  ++classes_[std::min(static_cast<std::size_t>(place), CLASSES - 1)];
  ++count_;
  worst_ = std::max(worst_, microseconds);
}

double Histogram::Quantile(double share) const {
  const auto wanted = static_cast<std::int64_t>(std::ceil(static_cast<double>(count_) * share));
  std::int64_t soFar = 0;
  for (std::size_t i = 0; i < CLASSES && count_ > 0; ++i) {
    soFar += classes_[i];
    if (soFar >= wanted) {
      return std::min(EndOf(i), worst_);
    }
  }
  return 0;
}

// ---- Load ----------------------------------------------------------------------------------------

bool Load::Start(const LoadOrder& order) {
  if (runs_) {
    return false;
  }
  order_ = order;
  runs_ = true;
  stops_.store(false);
  trouble_.clear();
  elapsedMs_ = 0;
  answers_.clear();
  lost_ = 0;
  times_ = {};
  plainTimes_ = {};
  runs_ = platform::StartThread(Run, this, platform::STACK_FOR_HOST_CALLBACKS) != 0;
  return runs_;
}

tools::JsonObject Load::Describe() const {
  std::vector<tools::JsonObject> answers;
  for (const auto& [status, count] : answers_) {
    answers.push_back({{"status", tools::EscapeBytes(status)}, {"count", count}});
  }
  const auto describe = [](const Histogram& times) {
    // Only the classes from the first to the last that holds anything.
    std::vector<tools::JsonObject> classes;
    for (std::size_t i = 0; i < Histogram::CLASSES; ++i) {
      if (times.Classes()[i] > 0) {
        classes.push_back(
            {{"class", i}, {"endUs", Histogram::EndOf(i)}, {"count", times.Classes()[i]}});
      }
    }
    return tools::JsonObject({{"count", times.Count()},
                              {"medianUs", times.Quantile(0.5)},
                              {"p99Us", times.Quantile(0.99)},
                              {"worstUs", times.Worst()},
                              {"classes", classes}});
  };
  return {{"runs", runs_},
          {"pc", order_.options.link.address + ":" + std::to_string(order_.options.link.port)},
          {"perSecond", order_.perSecond},
          {"elapsedMs", elapsedMs_},
          {"trouble", trouble_},
          {"lost", lost_},
          {"answers", answers},
          {"times", describe(times_)},
          {"plain", describe(plainTimes_)}};
}

void Load::TellHowItIs() {
  {
    const Guard guard(state_->lock);
    state_->history.Tell("load", Describe().Text());
  }
  state_->tellNews();
}

void Load::Run(void* argument) {
  static_cast<Load*>(argument)->Work();
}

void Load::Work() {
  std::string trouble;
  try {
    SendAll();
  } catch (const std::exception& error) {
    trouble = error.what();
  }
  {
    const Guard guard(state_->lock);
    runs_ = false;
    trouble_ = trouble;
  }
  TellHowItIs();
}

void Load::SendAll() {
  LoadOrder order;
  {
    const Guard guard(state_->lock);
    order = order_;
    order_.options.link.timeoutMs = ANSWER_TIME_MS;
  }
  requestSize_ =
      MessageBytes(MakeRequest(order.options, EXCHANGE_OF_ONE, "load-0000000", {})).size();
  const OwnedSocket listening(platform::OpenTcpSocket());
  std::uint32_t loopback = 0;
  platform::TextToAddress("127.0.0.1", &loopback);
  PlainServer server;
  server.listening = listening.handle;
  server.requestSize = requestSize_;
  if (listening.handle <= platform::NO_SOCKET ||
      !tools::BindListeningAddress(listening.handle, loopback, 0) ||
      !platform::StartListening(listening.handle, 1) ||
      platform::StartThread(ServePlainly, &server, platform::STACK_FOR_LIBRARY) == 0) {
    throw Failure(EXIT_LOCAL_TROUBLE, "this machine gives no socket or thread");
  }
  struct EndServer {
    PlainServer* server;
    ~EndServer() {
      server->ends.store(true);
      while (!server->ended.load()) {
        platform::SleepMilliseconds(1);
      }
    }
  } const endServer{&server};
  Link plainLink;
  plainLink.port = static_cast<std::uint16_t>(platform::BoundPort(listening.handle));
  plainLink.timeoutMs = ANSWER_TIME_MS;
  const OpenConnection plain = Connect(plainLink);

  OpenConnection connection;
  const Clock::time_point start = Clock::now();
  const double endUs = order.seconds * 1e6;
  const double stepUs = 1e6 / order.perSecond;
  double toldUs = 0;
  double plainUs = 0;
  std::int64_t number = 0;
  for (double nowUs = 0; nowUs < endUs && !stops_.load() && !state_->ending.load();
       nowUs = MicrosecondsSince(start)) {
    if (nowUs - toldUs >= TELL_EVERY_MS * 1e3) {
      toldUs = nowUs;
      {
        const Guard guard(state_->lock);
        elapsedMs_ = nowUs / 1e3;
      }
      TellHowItIs();
    }
    if (nowUs - plainUs >= 1e6 / PLAIN_PER_SECOND) {
      plainUs = nowUs;
      AskPlain(*plain);
      continue;
    }
    const double dueUs = static_cast<double>(number) * stepUs;
    if (dueUs > nowUs) {
      // No shorter than a millisecond: what becomes due meanwhile goes out one after the other.
      platform::SleepMilliseconds(
          static_cast<std::int32_t>(std::clamp(dueUs - nowUs, 1e3, 20e3) / 1e3));
      continue;
    }
    if (!AskOnce(&connection, number++)) {
      connection.reset();
      platform::SleepMilliseconds(LOAD_REST_MS);
    }
    // What a slow PC has not been asked in time is not made up for in a burst.
    const double lateUs = MicrosecondsSince(start) - static_cast<double>(number) * stepUs;
    if (lateUs > 1e6) {
      number += static_cast<std::int64_t>(lateUs / stepUs);
    }
  }
  const Guard guard(state_->lock);
  elapsedMs_ = MicrosecondsSince(start) / 1e3;
}

// One request and its answer; false when the connection is of no more use.
bool Load::AskOnce(OpenConnection* connection, std::int64_t number) {
  std::string answered;
  double microseconds = -1;
  bool isBusy = false;
  try {
    if (*connection == nullptr) {
      *connection = Connect(order_.options.link);
    }
    char uid[32];
    std::snprintf(uid, sizeof uid, "load-%07lld", static_cast<long long>(number % 10'000'000));
    const std::string bytes = MessageBytes(MakeRequest(order_.options, EXCHANGE_OF_ONE, uid, {}));
    const Clock::time_point sent = Clock::now();
    Send(connection->get(), bytes);
    const Answer answer = AwaitAnswer(connection->get(), uid, [](const HostData&) {});
    microseconds = MicrosecondsSince(sent);
    answered = answer.status + (answer.statusOut.empty() ? "" : " " + answer.statusOut);
    isBusy = answer.status == tools::STATUS_BUSY;
    if (!answer.problem.empty()) {
      answered = answer.problem;
    }
    answered.resize(std::min(answered.size(), SHOWN_OF_AN_ANSWER));
  } catch (const Failure& failure) {
    if (failure.exitCode == EXIT_NOTHING_THERE || failure.exitCode == EXIT_LOCAL_TROUBLE) {
      throw;
    }
  }
  const Guard guard(state_->lock);
  if (microseconds < 0) {
    ++lost_;
    return false;
  }
  if (answers_.size() < KINDS_OF_ANSWERS || answers_.count(answered) > 0) {
    ++answers_[answered];
  }
  times_.Add(microseconds);
  // Whoever is told "busy" is shut out, too.
  return !isBusy;
}

void Load::AskPlain(const Connection& plain) {
  const std::string bytes(requestSize_, 'q');
  const std::atomic<bool> never{false};
  const Clock::time_point sent = Clock::now();
  platform::SendBytes(plain.socket, bytes.data(), static_cast<std::int32_t>(bytes.size()));
  if (TakeBytes(plain.socket, static_cast<std::size_t>(PLAIN_ANSWER_SIZE), never)) {
    const double microseconds = MicrosecondsSince(sent);
    const Guard guard(state_->lock);
    plainTimes_.Add(microseconds);
  }
}

}  // namespace zvqrn::scanner
