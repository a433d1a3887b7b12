#include "discovery/slp_sender.h"

#include "platform/socket.h"
#include "platform/system.h"
#include "platform/thread.h"

namespace zvqrn {
namespace {

constexpr char DEBUGGER_LINE[] = "Send SLP\r\n";

}  // namespace

void SendDatagram(const char* bytes, std::int32_t byteCount, const char* address,
                  std::uint16_t port, std::int32_t count, std::int32_t pauseMs) {
  const bool started = platform::StartSockets();
  platform::Endpoint receiver{0, port};
  const bool hasReceiver = platform::TextToAddress(address, &receiver.address);
  const platform::SocketHandle socket = platform::OpenUdpSocket();
  for (std::int32_t i = 0; i < count; i++) {
    if (hasReceiver && socket != platform::NO_SOCKET) {
      platform::SendDatagramTo(socket, bytes, byteCount, receiver);
    }
    platform::SleepMilliseconds(pauseMs);
  }
  if (socket != platform::NO_SOCKET) {
    platform::CloseSocket(socket);
  }
  platform::WriteDebuggerLine(DEBUGGER_LINE);
  if (started) {
    platform::EndSockets();
  }
}

SlpResult SendSlpReply(std::int32_t xid, std::int32_t errorCode, const char* attributeList,
                       const char* languageTag, const char* address, std::uint16_t port,
                       std::int32_t count, std::int32_t pauseMs) {
  if (attributeList == nullptr || languageTag == nullptr || address == nullptr) {
    return SLP_ERR_ARGUMENT;
  }
  SlpMessage* made = nullptr;
  const SlpResult built = BuildAttrRply(xid, errorCode, attributeList, languageTag, &made);
  const OwnedSlpMessage message(made);
  if (built != SLP_OK) {
    return built;
  }
  const OwnedBlock<char> bytes(NewBytes(static_cast<std::int64_t>(message->header->length) + 1));
  if (!bytes) {
    return SLP_ERR_NO_MEMORY;
  }
  const std::int32_t byteCount = EncodeSlpMessage(message.get(), bytes.get());
  SendDatagram(bytes.get(), byteCount, address, port, count, pauseMs);
  return SLP_OK;
}

}  // namespace zvqrn
