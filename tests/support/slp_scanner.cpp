#include "support/slp_scanner.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/clock.h"

namespace zvqrn::test {
namespace {

constexpr std::uint16_t PORT = 2968;
constexpr char GROUP[] = "239.255.255.253";

std::uint32_t AddressOf(const char* text) {
  std::uint32_t address = 0;
  EXPECT_TRUE(platform::TextToAddress(text, &address));
  return address;
}

std::string Number16(std::size_t number) {
  return {static_cast<char>(number >> 8), static_cast<char>(number)};
}

// Far from those that tests choose themselves.
int FreshXid() {
  static int last = 20000;
  return ++last;
}

int XidOf(const std::string& reply) {
  return reply.size() < 12 ? -1 : (reply[10] & 0xFF) << 8 | (reply[11] & 0xFF);
}

std::string Counted(const std::string& text) {
  return Number16(text.size()) + text;
}

void SendFrom(platform::SocketHandle socket, const std::string& bytes, const char* to) {
  EXPECT_TRUE(platform::SendDatagramTo(socket, bytes.data(),
                                       static_cast<std::int32_t>(bytes.size()),
                                       platform::Endpoint{AddressOf(to), PORT}));
}

}  // namespace

bool InPrivateNetwork() {
  const char* address = std::getenv("QUORIN_PRIVATE_ADDRESS");
  EXPECT_STREQ(address, PC_ADDRESS) << "run this with scripts/private_network.sh";
  return address != nullptr;
}

std::string Encode(const SlpRequest& request) {
  const std::string rest = Counted(request.languageTag) + Counted(request.previousResponders) +
                           Counted(request.url) + Counted(request.scope) +
                           Counted(request.tagList) + Number16(0);
  return std::string("\x02\x06\x00", 3) + Number16(12 + rest.size()) +
         std::string("\x20\x00\x00\x00\x00", 5) + Number16(static_cast<std::size_t>(request.xid)) +
         rest;
}

SlpScanner::SlpScanner(const char* address, const char* adapter)
    : socket_(platform::OpenUdpSocket()) {
  if (std::string(address).rfind("127.", 0) != 0) {
    RunCommand("ip address replace " + std::string(address) + "/24 dev " + adapter);
  }
  EXPECT_TRUE(platform::BindDatagramPort(socket_, AddressOf(address), PORT, true));
  EXPECT_TRUE(platform::SendMulticastFrom(socket_, AddressOf(MulticastInterface(address))));
}

SlpScanner::~SlpScanner() {
  platform::CloseSocket(socket_);
}

void SlpScanner::Send(const std::string& bytes, const char* to) const {
  SendFrom(socket_, bytes, to);
}

void SlpScanner::SendFromAnotherPort(const std::string& bytes, const char* to) {
  const platform::SocketHandle other = platform::OpenUdpSocket();
  EXPECT_TRUE(platform::BindDatagramPort(other, AddressOf(SCANNER_ADDRESS), 0, false));
  SendFrom(other, bytes, to);
  platform::CloseSocket(other);
}

void SlpScanner::SendByMulticast(const std::string& bytes) const {
  SendFrom(socket_, bytes, GROUP);
}

std::string SlpScanner::Ask(const char* to, std::int32_t milliseconds) {
  const int xid = FreshXid();
  Send(Encode({xid}), to);
  return ReceiveReply(xid, milliseconds);
}

std::string SlpScanner::AskByMulticast(std::int32_t milliseconds) {
  return Ask(GROUP, milliseconds);
}

std::string SlpScanner::Receive(std::int32_t milliseconds) {
  if (platform::WaitReadable(socket_, milliseconds) != platform::SOCKET_READY) {
    return "";
  }
  char buffer[2000];
  platform::Endpoint sender{};
  const std::int32_t length = platform::ReceiveDatagram(socket_, buffer, sizeof buffer, &sender);
  EXPECT_GT(length, 0);
  return {buffer, static_cast<std::size_t>(length)};
}

std::string SlpScanner::ReceiveReply(int xid, std::int32_t milliseconds) {
  const std::int64_t deadline = platform::MonotonicMilliseconds() + milliseconds;
  for (std::int64_t left = milliseconds; left > 0;
       left = deadline - platform::MonotonicMilliseconds()) {
    std::string reply = Receive(static_cast<std::int32_t>(left));
    if (XidOf(reply) == xid) {
      return reply;
    }
  }
  return "";
}

std::map<int, int> SlpScanner::CountReplies(std::int32_t milliseconds, int enough) {
  std::map<int, int> counts;
  const std::int64_t deadline = platform::MonotonicMilliseconds() + milliseconds;
  for (std::int64_t left = milliseconds; left > 0 && enough > 0;
       left = deadline - platform::MonotonicMilliseconds()) {
    const std::string reply = Receive(static_cast<std::int32_t>(left));
    if (!reply.empty()) {
      counts[XidOf(reply)]++;
      enough--;
    }
  }
  return counts;
}

}  // namespace zvqrn::test
