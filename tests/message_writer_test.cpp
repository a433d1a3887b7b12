#include "eventproto/message_writer.h"

#include <gtest/gtest.h>

#include <string>

#include "base/text.h"

namespace zvqrn {
namespace {

std::string Written(const OutgoingContent& content) {
  const OwnedOutgoingMessage message(MakeOutgoingMessage(7, content));
  char* bytes = nullptr;
  std::int32_t size = 0;
  if (!message || BuildMessageBytes(message.get(), &bytes, &size) != 1) {
    return "nothing";
  }
  const OwnedBlock<char> owner(bytes);
  return {bytes, static_cast<std::size_t>(size)};
}

EventHeader Header(std::int32_t subevent, const char* uid, const char* version) {
  EventHeader header{};
  header.exchangeType = subevent == SUBEVENT_NONE ? EXCHANGE_SINGLE : EXCHANGE_PAIRED;
  header.subevent = subevent;
  CopyBounded(header.uid, uid, UID_SIZE);
  CopyBounded(header.protocolVersion, version, VERSION_SIZE);
  return header;
}

TEST(MessageWriter, WritesWholeMessages) {
  const std::string body300(300, 'b');
  const std::string body12345(12345, 'c');
  const struct {
    const char* name;
    EventHeader header;
    std::string body;
    const char* status;
    const char* parentUid;
    std::int32_t isAnswer;
    std::string bytes;
  } cases[] = {
      {"an answer to a START with a body", Header(SUBEVENT_START, "ab", "1.00"), body300, "0001",
       nullptr, 1,
       "HTTP/1.0 200 OK\r\nServer : Zorva Quorin/2.0\r\n"
       "Content-Type : application/octet-stream\r\nContent-Length : 300\r\n"
       "x-protocol-name : Zorva Network Service Protocol\r\nx-protocol-version : 1.00\r\n"
       "x-subevent : START\r\nx-uid : ab\r\nx-status : 0001\r\n\r\n" +
           body300},
      {"an answer to an END without body", Header(SUBEVENT_END, "1234567890123456789", "2.00"), "",
       "2002", "parent", 1,
       "HTTP/1.0 200 OK\r\nServer : Zorva Quorin/2.0\r\n"
       "Content-Type : application/octet-stream\r\n"
       "x-protocol-name : Zorva Network Service Protocol\r\nx-protocol-version : 2.00\r\n"
       "x-subevent : END\r\nx-uid : 1234567890123456789\r\nx-parent-uid : parent\r\n"
       "x-status : 2002\r\n\r\n"},
      {"an answer to a single request", Header(SUBEVENT_NONE, "1", "1.00"), "", "1003", "", 1,
       "HTTP/1.0 200 OK\r\nServer : Zorva Quorin/2.0\r\n"
       "Content-Type : application/octet-stream\r\n"
       "x-protocol-name : Zorva Network Service Protocol\r\nx-protocol-version : 1.00\r\n"
       "x-uid : 1\r\nx-status : 1003\r\n\r\n"},
      {"a request with the host's data", Header(SUBEVENT_START, "20261122093007123", "2.00"),
       body12345, "0001", "77", 0,
       "POST /PushScan HTTP/1.0\r\nContent-Type : application/octet-stream\r\n"
       "Content-Length : 12345\r\nx-protocol-name : Zorva Network Service Protocol\r\n"
       "x-protocol-version : 2.00\r\nx-uid : 20261122093007123\r\nx-parent-uid : 77\r\n\r\n" +
           body12345},
      {"no uid", Header(9, "", "1.00"), "", "2001", nullptr, 1,
       "HTTP/1.0 200 OK\r\nServer : Zorva Quorin/2.0\r\n"
       "Content-Type : application/octet-stream\r\n"
       "x-protocol-name : Zorva Network Service Protocol\r\nx-protocol-version : 1.00\r\n"
       "x-status : 2001\r\n\r\n"},
      {"a version that was left empty", Header(0, "1", ""), "", "2001", nullptr, 1, "nothing"},
  };
  for (const auto& c : cases) {
    const OutgoingContent content{&c.header,
                                  c.body.empty() ? nullptr : c.body.data(),
                                  static_cast<std::int32_t>(c.body.size()),
                                  c.status,
                                  c.parentUid,
                                  c.isAnswer};
    EXPECT_EQ(Written(content), c.bytes) << c.name;
  }
}

TEST(OutgoingMessage, RefusesContradictions) {
  const EventHeader header = Header(0, "1", "1.00");
  EXPECT_EQ(MakeOutgoingMessage(1, {&header, "x", 0, "0001", nullptr, 1}), nullptr);
  EXPECT_EQ(MakeOutgoingMessage(1, {&header, nullptr, 5, "0001", nullptr, 1}), nullptr);
  EXPECT_EQ(MakeOutgoingMessage(1, {nullptr, nullptr, 0, "0001", nullptr, 1}), nullptr);
  EXPECT_EQ(MakeOutgoingMessage(1, {&header, nullptr, 0, nullptr, nullptr, 1}), nullptr);
  // A record that a host has filled to the brim.
  EventHeader full = header;
  std::fill(std::begin(full.uid), std::end(full.uid), 'u');
  std::fill(std::begin(full.protocolVersion), std::end(full.protocolVersion), '1');
  const OwnedOutgoingMessage message(
      MakeOutgoingMessage(1, {&full, "x", 1, "0001", "12345678901234567890", 0}));
  ASSERT_TRUE(message);
  EXPECT_EQ(std::string(message->header.uid), std::string(19, 'u'));
  EXPECT_STREQ(message->header.protocolVersion, "11111");
  EXPECT_STREQ(message->parentUid, "1234567890123456789");
}

TEST(MessageWriter, KeepsTheMessageWholeOnRefusal) {
  EventMessage* message = nullptr;
  EXPECT_EQ(CreateMessage("GET", "", "HTTP/1.0", &message), WRITE_BAD_ARGUMENT);
  EXPECT_EQ(CreateMessage(nullptr, "/", "HTTP/1.0", &message), WRITE_BAD_ARGUMENT);
  EXPECT_EQ(message, nullptr);
  ASSERT_EQ(CreateMessage("A", "b", "C", &message), WRITE_DONE);
  EXPECT_EQ(AddHeader(message, "name", ""), WRITE_SKIPPED);
  EXPECT_EQ(AddHeader(message, "", "value"), WRITE_SKIPPED);
  EXPECT_EQ(AddHeader(message, nullptr, "value"), WRITE_BAD_ARGUMENT);
  EXPECT_EQ(message->headerLength, 0);
  // Lines that just fill a block, and one that needs a larger step.
  const std::string value(251, 'v');
  EXPECT_EQ(AddHeader(message, "n", value.c_str()), WRITE_DONE);
  EXPECT_EQ(message->headerCapacity, 512);
  EXPECT_EQ(AddHeader(message, "n", std::string(1000, 'w').c_str()), WRITE_DONE);
  EXPECT_EQ(message->headerLength, 257 + 1006);
  EXPECT_EQ(message->headerCapacity, 1280);

  EXPECT_EQ(SetBody(message, "12345", 5), WRITE_DONE);
  EXPECT_EQ(SetBody(message, "1", 0), WRITE_BAD_ARGUMENT);
  EXPECT_EQ(SetBody(message, nullptr, 3), WRITE_BAD_ARGUMENT);
  EXPECT_EQ(SetBody(message, "1", -1), WRITE_BAD_ARGUMENT);
  EXPECT_EQ(message->bodyLength, 5);

  const std::int32_t size = MessageSize(message);
  EXPECT_EQ(size, 7 + 1263 + 2 + 5);
  std::string out(static_cast<std::size_t>(size), '?');
  EXPECT_EQ(SerializeMessage(message, out.data(), size - 1), WRITE_FAILED);
  EXPECT_EQ(out, std::string(static_cast<std::size_t>(size), '?'));
  EXPECT_EQ(SerializeMessage(message, out.data(), 0), WRITE_BAD_ARGUMENT);
  EXPECT_EQ(SerializeMessage(message, out.data(), size), WRITE_DONE);
  EXPECT_EQ(out.substr(0, 15), "A b C\r\nn : vvvv");
  EXPECT_EQ(out.substr(out.size() - 11), "ww\r\n\r\n12345");
  EXPECT_EQ(SetBody(message, nullptr, 0), WRITE_DONE);
  EXPECT_EQ(MessageSize(message), size - 5);
  EXPECT_EQ(FreeMessage(message), 1);
  EXPECT_EQ(FreeMessage(nullptr), -1);
  EXPECT_EQ(MessageSize(nullptr), -1);
}

}  // namespace
}  // namespace zvqrn
