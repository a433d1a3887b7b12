#include "base/local_identity.h"

#include <cstring>

#include "base/service_state.h"
#include "base/status.h"
#include "base/text.h"
#include "platform/socket.h"
#include "platform/system.h"

namespace zvqrn {

std::int32_t ReadComputerName(char* buffer, std::int32_t* length) {
  char name[platform::COMPUTER_NAME_SIZE];
  if (length == nullptr || !platform::ReadSystemComputerName(name)) {
    return 0;
  }
  const auto nameLength = static_cast<std::int32_t>(std::strlen(name));
  if (buffer != nullptr) {
    if (*length <= nameLength) {
      return 0;
    }
    CopyBounded(buffer, name, *length);
  }
  *length = nameLength;
  return 1;
}

namespace {

enum ReadAddress : std::int32_t {
  ADDRESS_USABLE,
  ADDRESS_ONLY_LOOPBACK,
  ADDRESS_NONE,  // the host name resolves to nothing
  ADDRESS_NO_HOST_NAME,
  ADDRESS_UNREADABLE
};

// What the host name resolves to first; `address` is 0 unless it is usable.
ReadAddress ReadLocalAddress(std::uint32_t* address) {
  *address = 0;
  char hostName[platform::HOST_NAME_SIZE];
  if (!platform::ReadHostName(hostName)) {
    return ADDRESS_NO_HOST_NAME;
  }
  std::uint32_t first = 0;
  const platform::HostAddressResult result = platform::FirstHostAddress(hostName, &first);
  if (result != platform::HOST_ADDRESS_FOUND) {
    return result == platform::HOST_ADDRESS_NONE ? ADDRESS_NONE : ADDRESS_UNREADABLE;
  }
  char text[platform::ADDRESS_TEXT_SIZE];
  platform::AddressToText(first, text);
  if (std::strcmp(text, "127.0.0.1") == 0) {
    return ADDRESS_ONLY_LOOPBACK;
  }
  *address = first;
  return ADDRESS_USABLE;
}

}  // namespace

PickResult PickLocalAddress() {
  std::uint32_t address = 0;
  const ReadAddress found = ReadLocalAddress(&address);
  if (found == ADDRESS_NO_HOST_NAME) {
    return PICK_FAILED;
  }
  if (found == ADDRESS_UNREADABLE) {
    return PICK_UNREADABLE;
  }
  service.localAddress = address;
  if (found == ADDRESS_NONE) {
    return PICK_FAILED;
  }
  if (found == ADDRESS_ONLY_LOOPBACK) {
    ReportStatus(QRN_STATUS_CLASS_ERROR, QRN_STATUS_NO_NETWORK, STATUS_TEXT_NO_NETWORK);
    return PICK_ONLY_LOOPBACK;
  }
  if (service.serviceRunning.load() != 0) {
    ReportStatus(QRN_STATUS_CLASS_NOTICE, QRN_STATUS_RESTART, STATUS_TEXT_RESTART);
  }
  return PICK_USABLE;
}

AddressCheck CheckLocalAddress() {
  const LockScope scope(&service.identityLock);
  std::uint32_t address = 0;
  const ReadAddress found = ReadLocalAddress(&address);
  if (!scope.Held() || found == ADDRESS_NO_HOST_NAME) {
    return ADDRESS_SAME;
  }
  if (found == ADDRESS_UNREADABLE) {
    return ADDRESS_UNKNOWN;
  }
  return address == service.localAddress ? ADDRESS_SAME : ADDRESS_DIFFERS;
}

}  // namespace zvqrn
