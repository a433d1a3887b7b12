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

PickResult PickLocalAddress() {
  char hostName[platform::HOST_NAME_SIZE];
  if (!platform::ReadHostName(hostName)) {
    return PICK_FAILED;
  }
  std::uint32_t address = 0;
  if (!platform::FirstHostAddress(hostName, &address)) {
    service.localAddress = 0;
    return PICK_FAILED;
  }
  char text[platform::ADDRESS_TEXT_SIZE];
  platform::AddressToText(address, text);
  if (std::strcmp(text, "127.0.0.1") == 0) {
    service.localAddress = 0;
    ReportStatus(QRN_STATUS_CLASS_ERROR, QRN_STATUS_NO_NETWORK, STATUS_TEXT_NO_NETWORK);
    return PICK_ONLY_LOOPBACK;
  }
  service.localAddress = address;
  if (service.serviceRunning.load() != 0) {
    ReportStatus(QRN_STATUS_CLASS_NOTICE, QRN_STATUS_RESTART, STATUS_TEXT_RESTART);
  }
  return PICK_USABLE;
}

}  // namespace zvqrn
