#include "support/scanner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "common/rude_socket.h"
#include "platform/clock.h"

namespace zvqrn::test {
namespace {

// The length of the whole message at the start of `bytes`; 0 when its head is not complete.
std::size_t MessageLength(const std::string& bytes) {
  const std::size_t headEnd = bytes.find("\r\n\r\n");
  if (headEnd == std::string::npos) {
    return 0;
  }
  const std::string mark = "Content-Length : ";
  const std::size_t at = bytes.find(mark);
  const std::size_t body =
      at < headEnd ? std::strtoul(bytes.c_str() + at + mark.size(), nullptr, 10) : 0;
  return headEnd + 4 + body;
}

}  // namespace

Scanner::Scanner(Listener listener) : socket_(platform::OpenTcpSocket()) {
  std::uint32_t address = 0;
  platform::TextToAddress("127.0.0.1", &address);
  const auto result = platform::ConnectTo(socket_, address, 2968, PATIENCE_MS);
  EXPECT_TRUE(listener == MAY_BE_GONE || result == platform::CONNECT_DONE) << result;
}

Scanner::~Scanner() {
  Close();
}

bool Scanner::Send(std::string_view bytes) {
  const std::int64_t deadline = platform::MonotonicMilliseconds() + PATIENCE_MS;
  while (!bytes.empty() && platform::MonotonicMilliseconds() < deadline) {
    const std::int32_t sent =
        platform::SendBytes(socket_, bytes.data(),
                            static_cast<std::int32_t>(std::min<std::size_t>(bytes.size(), 65536)));
    if (sent == platform::SEND_NO_ROOM) {
      platform::WaitWritable(socket_, 100);
    } else if (sent < 0) {
      return false;
    } else {
      bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
  }
  return bytes.empty();
}

Scanner::Filled Scanner::Fill(std::int64_t deadline) {
  for (;;) {
    const std::int64_t left = deadline - platform::MonotonicMilliseconds();
    if (left < 0) {
      return TIMED_OUT;
    }
    if (platform::WaitReadable(socket_, static_cast<std::int32_t>(left)) ==
        platform::SOCKET_READY) {
      char buffer[65536];
      const std::int32_t count = platform::ReceiveBytes(socket_, buffer, sizeof buffer);
      if (count > 0) {
        received_.append(buffer, static_cast<std::size_t>(count));
        return FILLED;
      }
      if (count != platform::RECEIVE_NOTHING) {
        ended_ = true;
        return count == 0 ? ENDED : BROKEN_OFF;
      }
    } else if (left == 0) {
      return TIMED_OUT;
    }
  }
}

std::string Scanner::Receive(std::int32_t milliseconds) {
  const std::int64_t deadline = platform::MonotonicMilliseconds() + milliseconds;
  std::size_t length = MessageLength(received_);
  while (length == 0 || received_.size() < length) {
    if (Fill(deadline) != FILLED) {
      return "";
    }
    length = MessageLength(received_);
  }
  std::string message = received_.substr(0, length);
  received_.erase(0, length);
  return message;
}

bool Scanner::SeesClose(std::int32_t milliseconds) {
  if (!received_.empty()) {
    return false;
  }
  const Filled filled = Fill(platform::MonotonicMilliseconds() + milliseconds);
  return filled == ENDED || filled == BROKEN_OFF;
}

bool Scanner::SeesEnd(std::int32_t milliseconds) {
  return received_.empty() && Fill(platform::MonotonicMilliseconds() + milliseconds) == ENDED;
}

bool Scanner::HearsNothing(std::int32_t milliseconds) {
  return received_.empty() && Fill(platform::MonotonicMilliseconds() + milliseconds) == TIMED_OUT;
}

void Scanner::Close() {
  if (socket_ != platform::NO_SOCKET) {
    platform::CloseSocket(socket_);
    socket_ = platform::NO_SOCKET;
  }
}

void Scanner::Reset() {
  tools::BreakOffConnection(socket_);
  socket_ = platform::NO_SOCKET;
}

void Scanner::EndSending() {
  platform::EndSending(socket_);
}

}  // namespace zvqrn::test
