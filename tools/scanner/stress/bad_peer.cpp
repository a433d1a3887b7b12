#include "scanner/stress/bad_peer.h"

#include <algorithm>

#include "common/rude_socket.h"
#include "common/text.h"
#include "common/vocabulary.h"
#include "platform/clock.h"
#include "platform/thread.h"

namespace zvqrn::scanner {

namespace {

constexpr std::int32_t READ_SIZE = 65536;
constexpr std::int32_t LOOK_EVERY_MS = 20;

std::string HeaderOf(const Message& message, const char* name) {
  const std::string* value = FindHeader(message.headers, name);
  return value == nullptr ? std::string() : *value;
}

bool IsAmong(const std::string& status, const std::string& statuses) {
  return !status.empty() && statuses.find(status) != std::string::npos;
}

}  // namespace

BadPeer::BadPeer(Attack* attack, std::int32_t patienceMs)
    : attack_(attack), socket_(platform::OpenTcpSocket()) {
  const bool connected =
      IsOpen() && platform::ConnectTo(socket_, attack->address, attack->request.link.port,
                                      patienceMs) == platform::CONNECT_DONE;
  if (connected) {
    ++attack->tally.connections;
    attack->inPlace = true;
  } else {
    ++attack->tally.notConnected;
    Close();
  }
}

BadPeer::~BadPeer() {
  Close();
}

void BadPeer::Close() {
  if (IsOpen()) {
    platform::CloseSocket(socket_);
    socket_ = platform::NO_SOCKET;
  }
}

void BadPeer::BreakOff() {
  if (IsOpen()) {
    tools::BreakOffConnection(socket_);
    socket_ = platform::NO_SOCKET;
  }
}

void BadPeer::EndSending() {
  if (IsOpen()) {
    platform::EndSending(socket_);
  }
}

void BadPeer::Lose() {
  ++attack_->tally.closed;
  Close();
}

bool BadPeer::Send(const std::string& bytes) {
  std::size_t done = 0;
  while (IsOpen() && done < bytes.size() && !attack_->stop) {
    const auto left = static_cast<std::int32_t>(bytes.size() - done);
    const std::int32_t count = platform::SendBytes(socket_, bytes.data() + done, left);
    if (count > 0) {
      done += static_cast<std::size_t>(count);
      attack_->tally.bytes += count;
    } else if (count == platform::SEND_NO_ROOM) {
      platform::WaitWritable(socket_, LOOK_EVERY_MS);
    } else {
      Lose();
    }
  }
  attack_->tally.messages += done == bytes.size() ? 1 : 0;
  return done == bytes.size();
}

bool BadPeer::SendRequest(const std::string& bytes, const std::string& uid,
                          const std::string& statuses) {
  expected_[uid] = statuses;
  return Send(bytes);
}

void BadPeer::Read(std::int32_t milliseconds) {
  const std::int64_t endMs = platform::MonotonicMilliseconds() + milliseconds;
  std::int64_t leftMs = milliseconds;
  while (IsOpen() && leftMs >= 0 && !attack_->stop) {
    const auto waitMs = static_cast<std::int32_t>(std::min<std::int64_t>(leftMs, LOOK_EVERY_MS));
    if (platform::WaitReadable(socket_, waitMs) == platform::SOCKET_READY) {
      std::string bytes(READ_SIZE, '\0');
      const std::int32_t count = platform::ReceiveBytes(socket_, bytes.data(), READ_SIZE);
      if (count > 0) {
        received_.append(bytes, 0, static_cast<std::size_t>(count));
        Judge();
      } else if (count != platform::RECEIVE_NOTHING) {
        Lose();
      }
    }
    if (Unanswered() == 0) {
      return;
    }
    leftMs = endMs - platform::MonotonicMilliseconds();
  }
}

void BadPeer::Judge() {
  Message message;
  std::string why;
  ReadResult result = READ_MORE;
  Tally* tally = &attack_->tally;
  while ((result = TakeMessage(&received_, BODY_LIMIT, &message, &why)) == READ_DONE) {
    if (IsRequest(message)) {
      ++tally->answers["data"];
      continue;
    }
    const std::string status = HeaderOf(message, tools::HEADER_STATUS);
    const std::string uid = HeaderOf(message, tools::HEADER_UID);
    const auto expected = expected_.find(uid);
    ++tally->answers[tools::EscapeBytes(status)];
    if (!IsAnswer(message) || expected == expected_.end()) {
      NoteProblem(&tally->problems,
                  "an answer that nothing asked for, uid " + tools::EscapeBytes(uid));
    } else if (!IsAmong(status, expected->second) &&
               (status != tools::STATUS_BUSY || expected->second.empty())) {
      NoteProblem(&tally->problems,
                  "request " + tools::EscapeBytes(uid) + " was answered " +
                      tools::EscapeBytes(status) + ", not " +
                      (expected->second.empty() ? "left without an answer" : expected->second));
    }
    if (expected != expected_.end()) {
      expected_.erase(expected);
    }
  }
  if (result == READ_BAD) {
    NoteProblem(&tally->problems, why);
    Close();
  }
}

void Rest(const Attack& attack, std::int32_t milliseconds) {
  for (; milliseconds > 0 && !attack.stop; milliseconds -= LOOK_EVERY_MS) {
    platform::SleepMilliseconds(std::min(milliseconds, LOOK_EVERY_MS));
  }
}

std::string FreshUid(Attack* attack) {
  return "bad" + std::to_string(attack->firstUid++);
}

std::string RequestText(const Attack& attack, Exchange exchange, const std::string& uid,
                        const std::string& parentUid) {
  return MessageBytes(MakeRequest(attack.request, exchange, uid, parentUid));
}

}  // namespace zvqrn::scanner
