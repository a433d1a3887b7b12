#include "scanner/panel/scanners.h"

#include <algorithm>
#include <utility>

#include "common/text.h"
#include "common/vocabulary.h"
#include "platform/clock.h"
#include "platform/thread.h"
#include "scanner/wire/capture_file.h"

namespace zvqrn::scanner {

namespace {

// How long it waits for a PC to take the connection, or some bytes: no longer, because a scanner
// that is told to stop does so only then.
constexpr std::int32_t NETWORK_TIME_MS = 3000;
// How long a request that is due no answer is given for one all the same.
constexpr std::int32_t SILENCE_MS = 1000;
constexpr std::int32_t SCANNER_LOOK_MS = 500;
constexpr std::int32_t CLOSED_REST_MS = 20;  // after a PC has closed the connection
constexpr int MESSAGES_AT_ONCE = 50;
constexpr std::int32_t MESSAGES_TIME_MS = 200;
constexpr std::int32_t DATA_LIMIT = 32 * 1024 * 1024;

// The bytes as they are to leave, one piece after the other.
std::deque<std::string> Cut(const std::string& bytes, std::int32_t size) {
  std::deque<std::string> pieces;
  if (size == HEAD_THEN_BODY) {
    const std::size_t head = std::min(bytes.find("\r\n\r\n"), bytes.size() - 4) + 4;
    pieces = {bytes.substr(0, head), bytes.substr(head)};
    return pieces;
  }
  const std::size_t step = size > 0 ? static_cast<std::size_t>(size) : bytes.size();
  for (std::size_t start = 0; start < bytes.size(); start += step) {
    pieces.push_back(bytes.substr(start, step));
  }
  return pieces;
}

}  // namespace

VirtualScanner::VirtualScanner(PanelState* state, int number)
    : state_(state),
      number_(number),
      waker_(platform::MakeWaker()),
      event_(platform::MakeEvent()) {}

VirtualScanner::~VirtualScanner() {
  if (waker_ != nullptr) {
    platform::CloseWaker(waker_);
  }
  if (event_ != nullptr) {
    platform::CloseEvent(event_);
  }
}

bool VirtualScanner::Start(const std::shared_ptr<VirtualScanner>& scanner) {
  if (scanner->waker_ == nullptr || scanner->event_ == nullptr) {
    return false;
  }
  auto self = std::make_unique<std::shared_ptr<VirtualScanner>>(scanner);
  if (platform::StartThread(Run, self.get(), platform::STACK_FOR_HOST_CALLBACKS) == 0) {
    return false;
  }
  static_cast<void>(self.release());
  return true;
}

void VirtualScanner::Run(void* argument) {
  const std::unique_ptr<std::shared_ptr<VirtualScanner>> self(
      static_cast<std::shared_ptr<VirtualScanner>*>(argument));
  (*self)->Work();
}

void VirtualScanner::Poke() {
  platform::Wake(waker_);
  platform::SignalEvent(event_);
}

bool VirtualScanner::Give(const ScanOrder& order) {
  if (orders_.size() >= ORDERS_LIMIT || leaves_) {
    return false;
  }
  orders_.push_back(order);
  Poke();
  return true;
}

void VirtualScanner::Stop(bool leaves) {
  orders_.clear();
  stops_ = true;
  leaves_ = leaves_ || leaves;
  Poke();
}

tools::JsonObject VirtualScanner::Describe() const {
  return {{"number", number_},
          {"pc", pc_},
          {"openStart", tools::EscapeBytes(openStart_)},
          {"waiting", orders_.size()},
          {"left", left_}};
}

void VirtualScanner::TellHowItIs() {
  {
    const Guard guard(state_->lock);
    if (!leaves_) {
      state_->history.Tell("scanner", Describe().Text());
    }
  }
  state_->tellNews();
}

void VirtualScanner::Note(const std::string& kind, const std::string& text) {
  {
    const Guard guard(state_->lock);
    NoteEvent(state_, number_, kind, pc_, text);
  }
  state_->tellNews();
}

void VirtualScanner::Work() {
  while (true) {
    try {
      if (!TakeOrder()) {
        break;
      }
      const bool hadOrder = order_.has_value();
      SendNext();
      if (hadOrder && !order_.has_value()) {
        continue;  // the next one may wait already, and its call has been heard
      }
      std::int64_t nowMs = platform::MonotonicMilliseconds();
      SendDuePieces(nowMs);
      nowMs = platform::MonotonicMilliseconds();
      std::int64_t untilMs = nowMs + SCANNER_LOOK_MS;
      if (!pieces_.empty()) {
        untilMs = std::min(untilMs, nextPieceMs_);
      } else if (awaits_) {
        untilMs = std::min(untilMs, answerByMs_);
      }
      // With something to send, or to take up, it only looks whether anything has come.
      const bool hasNext = order_.has_value() && pieces_.empty() && !awaits_;
      Listen(hasNext ? 0 : static_cast<std::int32_t>(std::max<std::int64_t>(untilMs - nowMs, 0)));
      LookAtTime(platform::MonotonicMilliseconds());
    } catch (const ConnectionEnded&) {
      Disconnect("pc");
      platform::SleepMilliseconds(CLOSED_REST_MS);
    } catch (const Failure& failure) {
      Disconnect("scanner");
      Note("trouble", failure.what());
      order_.reset();
    } catch (const std::exception& error) {
      Note("trouble", error.what());
      Disconnect("scanner");
      order_.reset();
    }
  }
  Disconnect("scanner");
}

// Takes what it is to do next; false when it is to leave.
bool VirtualScanner::TakeOrder() {
  bool stops = false;
  bool leaves = false;
  {
    const Guard guard(state_->lock);
    stops = std::exchange(stops_, false);
    leaves = leaves_ || state_->ending.load();
    platform::ClearEvent(event_);
    if (stops) {
      order_.reset();
    }
    if (!order_.has_value() && !orders_.empty() && !leaves) {
      order_ = std::move(orders_.front());
      orders_.pop_front();
      left_ = order_->times;
    } else if (!order_.has_value()) {
      left_ = 0;
    }
  }
  if (stops || leaves) {
    Disconnect("scanner");
    TellHowItIs();
  }
  return !leaves;
}

// Sends the next request of the order when nothing is under way, or ends the order.
void VirtualScanner::SendNext() {
  if (!order_.has_value() || awaits_ || !pieces_.empty()) {
    return;
  }
  std::string uid;
  std::string parentUid;
  bool isDone = false;
  {
    const Guard guard(state_->lock);
    isDone = left_ == 0;
    left_ -= isDone ? 0 : 1;
    uid = NextUid(order_->options);
    parentUid = openStart_;
  }
  if (isDone) {
    const bool closes = !order_->staysConnected && parentUid.empty();
    order_.reset();
    if (closes) {
      Disconnect("scanner");
    }
    TellHowItIs();
    return;
  }
  ConnectTo(order_->options.link);
  const bool isEnd = order_->exchange == EXCHANGE_END;
  Message message =
      MakeRequest(order_->options, order_->exchange, uid, isEnd ? parentUid : std::string());
  std::string bytes = MessageBytes(message);
  if (order_->fault != nullptr && order_->fault->changeBytes != nullptr) {
    order_->fault->changeBytes(&bytes);
  }
  const std::string* sentUid = FindHeader(message.headers, tools::HEADER_UID);
  awaitedUid_ = sentUid == nullptr ? std::string() : *sentUid;
  pieces_ = Cut(bytes, order_->options.link.pieceSize);
  nextPieceMs_ = platform::MonotonicMilliseconds();
}

void VirtualScanner::ConnectTo(const Link& wanted) {
  if (connection_ != nullptr && (connection_->link.address != wanted.address ||
                                 connection_->link.port != wanted.port || live_->IsFull())) {
    Disconnect("scanner");
  }
  if (connection_ != nullptr) {
    return;
  }
  live_ = std::make_unique<LiveConnection>(state_, number_);
  Link link = wanted;
  link.timeoutMs = NETWORK_TIME_MS;
  link.pieceSize = 0;
  link.bodyLimit = DATA_LIMIT;
  LiveConnection* live = live_.get();
  link.capture =
      std::make_shared<CaptureFile>([live](const std::string& frame) { live->TakeFrame(frame); });
  {
    const Guard guard(state_->lock);
    pc_ = link.address + ":" + std::to_string(link.port);
  }
  connection_ = Connect(link);
  Note("connected", {});
  TellHowItIs();
}

void VirtualScanner::SendDuePieces(std::int64_t nowMs) {
  while (connection_ != nullptr && !pieces_.empty() && nowMs >= nextPieceMs_) {
    const std::string piece = std::move(pieces_.front());
    pieces_.pop_front();
    Send(connection_.get(), piece);
    nextPieceMs_ = nowMs + std::max(order_->options.link.pauseMs, 0);
    if (pieces_.empty()) {
      awaits_ = true;
      answerByMs_ = nowMs + (live_->OwesAnswer() ? order_->timeoutMs
                                                 : std::min(order_->timeoutMs, SILENCE_MS));
    }
  }
}

// Waits for bytes of the PC or for an order, and takes the bytes in.
void VirtualScanner::Listen(std::int32_t milliseconds) {
  if (connection_ == nullptr) {
    if (milliseconds > 0) {
      platform::WaitEvent(event_, milliseconds);
    }
    return;
  }
  if (!holdsMore_ && platform::WaitReadableOrWoken(connection_->socket, waker_, milliseconds) !=
                         platform::WAKER_SOCKET_READY) {
    return;
  }
  const std::int64_t nowMs = platform::MonotonicMilliseconds();
  const DataHandler onData = [](const HostData&) {};  // the capture has it
  // A PC that never pauses must not keep the scanner from its other duties.
  holdsMore_ = true;
  for (int i = 0; i < MESSAGES_AT_ONCE && holdsMore_ && !live_->IsFull() &&
                  platform::MonotonicMilliseconds() - nowMs <= MESSAGES_TIME_MS;
       ++i) {
    holdsMore_ = AwaitEither(
        connection_.get(), nowMs, [this](const Answer& answer) { OnAnswer(answer); }, onData);
  }
  if (live_->IsFull()) {
    throw Failure(EXIT_PROTOCOL_ERROR, "too many messages on one connection");
  }
}

void VirtualScanner::OnAnswer(const Answer& answer) {
  if (awaitedUid_.empty() || answer.uid == awaitedUid_) {
    awaits_ = false;
  }
  // The library keeps no START that it has answered itself, and no device goes on with one that was
  // declined.
  if (answer.subevent.empty() || JudgeAnswer(answer) != EXIT_OK) {
    return;
  }
  {
    const Guard guard(state_->lock);
    if (tools::EqualsIgnoringCase(answer.subevent, tools::SUBEVENT_START_WORD)) {
      openStart_ = answer.uid;
    } else {
      openStart_.clear();
    }
  }
  TellHowItIs();
}

// No answer has come in time.
void VirtualScanner::LookAtTime(std::int64_t nowMs) {
  if (!awaits_ || nowMs < answerByMs_) {
    return;
  }
  awaits_ = false;
  if (live_ != nullptr && live_->OwesAnswer()) {
    Note("late", std::to_string(order_->timeoutMs));
  }
}

void VirtualScanner::Disconnect(const char* by) {
  pieces_.clear();
  awaits_ = false;
  holdsMore_ = false;
  const bool wasConnected = connection_ != nullptr;
  connection_.reset();
  if (live_ != nullptr) {
    live_->End();
    live_.reset();
  }
  if (wasConnected) {
    Note("closed", by);
  }
  {
    const Guard guard(state_->lock);
    pc_.clear();
    openStart_.clear();
  }
  if (wasConnected) {
    TellHowItIs();
  }
}

VirtualScanner* AddScanner(PanelState* state) {
  int number = 1;
  while (state->scanners.count(number) > 0) {
    ++number;
  }
  if (number > SCANNERS_LIMIT) {
    return nullptr;
  }
  const auto scanner = std::make_shared<VirtualScanner>(state, number);
  if (!VirtualScanner::Start(scanner)) {
    return nullptr;
  }
  state->scanners[number] = scanner;
  return scanner.get();
}

}  // namespace zvqrn::scanner
