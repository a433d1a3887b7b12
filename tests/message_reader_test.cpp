#include "eventproto/message_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "base/allocation.h"
#include "platform/clock.h"
#include "platform/thread.h"

namespace zvqrn {
namespace {

// Two ends of a connection on loopback.
struct Connection {
  platform::SocketHandle near = platform::NO_SOCKET;
  platform::SocketHandle far = platform::NO_SOCKET;

  Connection() {
    const platform::SocketHandle listening = platform::OpenTcpSocket();
    EXPECT_TRUE(platform::BindListeningPort(listening, 0));
    EXPECT_TRUE(platform::StartListening(listening, 1));
    std::uint32_t loopback = 0;
    platform::TextToAddress("127.0.0.1", &loopback);
    far = platform::OpenTcpSocket();
    const auto port = static_cast<std::uint16_t>(platform::BoundPort(listening));
    EXPECT_EQ(platform::ConnectTo(far, loopback, port, 5000), platform::CONNECT_DONE);
    platform::WaitReadable(listening, 5000);
    near = platform::AcceptConnection(listening);
    platform::CloseSocket(listening);
  }
  ~Connection() {
    platform::CloseSocket(near);
    CloseFar();
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void Send(const std::string& bytes) const {
    EXPECT_EQ(platform::SendBytes(far, bytes.data(), static_cast<std::int32_t>(bytes.size())),
              static_cast<std::int32_t>(bytes.size()));
  }
  void CloseFar() {
    if (far != platform::NO_SOCKET) {
      platform::CloseSocket(far);
    }
    far = platform::NO_SOCKET;
  }
};

// What one call of ReadMessage gives.
struct Read {
  ReadResult result;
  std::string message;
  std::string leftover;
};

// Reads with a leftover from an earlier read.
Read ReadOnce(platform::SocketHandle socket, const std::string& earlier = "") {
  char* leftover = nullptr;
  auto leftoverLength = static_cast<std::int32_t>(earlier.size());
  if (!earlier.empty()) {
    leftover = NewBytes(leftoverLength);
    earlier.copy(leftover, earlier.size());
  }
  char* message = NewBytes(1);  // of an earlier read, which frees it
  std::int32_t messageLength = 0;
  Read read{};
  read.result = ReadMessage(socket, &message, &messageLength, &leftover, &leftoverLength);
  const OwnedBlock<char> messageOwner(message);
  const OwnedBlock<char> leftoverOwner(leftover);
  if (message != nullptr) {
    read.message.assign(message, static_cast<std::size_t>(messageLength));
  }
  if (leftover != nullptr) {
    read.leftover.assign(leftover, static_cast<std::size_t>(leftoverLength));
  }
  return read;
}

std::string Head(const std::string& contentLength) {
  return "POST / HTTP/1.0\r\nContent-Length : " + contentLength + "\r\n\r\n";
}

TEST(ReadMessage, SplitsWhatArrivesAtOnce) {
  const std::string five = Head("5") + "12345";
  const std::string filling = Head("4000") + std::string(4000, 'f');
  const std::string noEnd = "POST / HTTP/1.0\r\na : " + std::string(4096 - 21, 'x');
  const struct {
    const char* name;
    std::string sent;
    ReadResult result;
    std::string message;
    std::string leftover;
  } cases[] = {
      {"one message", five, READ_DONE, five, ""},
      {"two messages", five + five, READ_DONE, five, five},
      {"a message and a piece", five + "POST", READ_DONE, five, "POST"},
      {"no body", Head("0"), READ_DONE, Head("0"), ""},
      {"no number", Head("abc") + "12", READ_DONE, Head("abc"), "12"},
      {"no Content-Length", "A b HTTP/1.0\r\n\r\nrest", READ_DONE, "A b HTTP/1.0\r\n\r\n", "rest"},
      {"a repeated length", "A b HTTP/1.0\r\nContent-Length:2\r\nContent-Length:9\r\n\r\n12345",
       READ_DONE, "A b HTTP/1.0\r\nContent-Length:2\r\nContent-Length:9\r\n\r\n12", "345"},
      {"a length below 0", Head("-3") + "12345", READ_DONE,
       Head("-3").substr(0, Head("-3").size() - 3), "\n\r\n12345"},
      {"a length far below 0", Head("-999999999999") + "12345", READ_DONE,
       Head("-999999999999") + "12345", ""},
      {"a length below the head's", Head("-1000") + "12345", READ_DONE, Head("-1000") + "12345",
       ""},
      {"a body that stops short", Head("9") + "12345", READ_TIMED_OUT, Head("9") + "12345", ""},
      {"2 GB announced", Head("2147483647") + "12345", READ_TIMED_OUT, Head("2147483647") + "12345",
       ""},
      {"more than 2 GB announced", Head("99999999999999") + "1", READ_TIMED_OUT,
       Head("99999999999999") + "1", ""},
      {"a malformed head", "rubbish\r\n\r\n" + five, READ_DONE, "", "rubbish\r\n\r\n" + five},
      {"a head without end", noEnd, READ_DONE, "", noEnd},
      {"a body across receives", filling, READ_DONE, filling, ""},
      {"a piece of a head", "POST / HT", READ_DONE, "", "POST / HT"},
      {"nothing", "", READ_TIMED_OUT, "", ""},
  };
  for (const auto& c : cases) {
    const Connection connection;
    connection.Send(c.sent);
    const Read read = ReadOnce(connection.near);
    EXPECT_EQ(read.result, c.result) << c.name;
    EXPECT_EQ(read.message, c.message) << c.name;
    EXPECT_EQ(read.leftover, c.leftover) << c.name;
  }
}

TEST(ReadMessage, TakesALeftoverBeforeTheSocket) {
  const Connection connection;
  const std::string five = Head("5") + "12345";
  Read read = ReadOnce(connection.near, five + "next");
  EXPECT_EQ(read.result, READ_DONE);
  EXPECT_EQ(read.message, five);
  EXPECT_EQ(read.leftover, "next");
  // A large leftover is taken whole.
  const std::string large = Head("9000") + std::string(9000, 'x');
  read = ReadOnce(connection.near, large + "POST");
  EXPECT_EQ(read.message, large);
  EXPECT_EQ(read.leftover, "POST");
  // A leftover that begins a head is completed from the socket; what comes behind it is kept.
  connection.Send("ST / HTTP/1.0\r\nContent-Length : 1\r\n\r\nab");
  read = ReadOnce(connection.near, "PO");
  EXPECT_EQ(read.message, Head("1") + "a");
  EXPECT_EQ(read.leftover, "b");
  // A head that just fits, its last byte coming last.
  const std::string begin = "A b HTTP/1.0\r\nx : ";
  const std::string largest = begin + std::string(HEAD_LIMIT - 4 - begin.size(), 'v') + "\r\n\r\n";
  connection.Send(largest.substr(HEAD_LIMIT - 1));
  read = ReadOnce(connection.near, largest.substr(0, HEAD_LIMIT - 1));
  EXPECT_EQ(read.message, largest);
}

// Cut at every byte, and with the pieces in separate receives, a message comes out the same.
TEST(ReadMessage, GivesTheSameMessageHoweverItIsCut) {
  const std::string message = Head("8") + "12\r\n\r\n78";
  for (std::size_t cut = 1; cut < message.size(); cut++) {
    Read read{};
    std::int64_t pause = RECEIVE_TIMEOUT_MS;
    // A machine that is too busy to send in time makes a pause, which ends the message.
    for (int i = 0; i < 100 && pause >= RECEIVE_TIMEOUT_MS; i++) {
      const Connection connection;
      const std::int64_t begin = platform::MonotonicMilliseconds();
      connection.Send(message.substr(0, cut));
      std::thread later([&] {
        platform::SleepMilliseconds(2);
        connection.Send(message.substr(cut));
        pause = platform::MonotonicMilliseconds() - begin;
      });
      read = ReadOnce(connection.near);
      later.join();
      while (read.message.empty() && read.result == READ_DONE) {
        read = ReadOnce(connection.near, read.leftover);
      }
    }
    EXPECT_EQ(read.result, READ_DONE) << cut;
    EXPECT_EQ(read.message, message) << cut;
    EXPECT_EQ(read.leftover, "") << cut;
  }
}

TEST(ReadMessage, TellsTheEndFromAnError) {
  Connection connection;
  connection.Send("POST / H");
  connection.CloseFar();
  Read read = ReadOnce(connection.near);
  EXPECT_EQ(read.leftover, "POST / H");
  read = ReadOnce(connection.near, read.leftover);
  EXPECT_EQ(read.result, READ_CLOSED);
  EXPECT_EQ(read.message + read.leftover, "");
  EXPECT_EQ(ReadOnce(99999).result, READ_FAILED);

  char* message = nullptr;
  std::int32_t length = 0;
  char* leftover = NewBytes(4);
  std::int32_t leftoverLength = 0;
  EXPECT_EQ(ReadMessage(connection.near, &message, &length, &leftover, &leftoverLength),
            READ_FAILED)
      << "a block without a length";
  EXPECT_EQ(leftover, nullptr);
  leftoverLength = 3;
  EXPECT_EQ(ReadMessage(connection.near, &message, &length, &leftover, &leftoverLength),
            READ_FAILED)
      << "a length without a block";
  EXPECT_EQ(leftoverLength, 0);
}

// A body longer than a message may be is handed back in pieces instead of being collected.
TEST(ReadMessage, LimitsTheBodyInMemory) {
  constexpr std::int32_t ONE_MEBIBYTE = 1048576;
  const Connection connection;
  std::thread sender([&] {
    const std::string head = Head("2000000000");
    const std::string block(65536, 'x');
    std::int64_t left = ONE_MEBIBYTE + 100000;
    connection.Send(head);
    while (left > 0) {
      const std::int32_t sent = platform::SendBytes(connection.far, block.data(), 65536);
      if (sent > 0) {
        left -= sent;
      } else {
        platform::WaitWritable(connection.far, 100);
      }
    }
  });
  Read read = ReadOnce(connection.near);
  while (read.message.empty()) {
    read = ReadOnce(connection.near, read.leftover);
  }
  EXPECT_EQ(read.result, READ_DONE);
  EXPECT_EQ(read.message.size(), static_cast<std::size_t>(ONE_MEBIBYTE));
  EXPECT_EQ(read.message.compare(0, 15, "POST / HTTP/1.0"), 0);
  for (read = ReadOnce(connection.near); !read.leftover.empty();) {
    read = ReadOnce(connection.near);
  }
  sender.join();
}

}  // namespace
}  // namespace zvqrn
