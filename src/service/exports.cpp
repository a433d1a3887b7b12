// The five exported functions; include/zvqrn/zvqrn.h documents them.

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "base/allocation.h"
#include "base/service_state.h"
#include "base/status.h"
#include "base/text.h"
#include "eventserver/host_data.h"
#include "service/lifecycle.h"
#include "zvqrn/zvqrn.h"

namespace zvqrn {
namespace {

// The layouts that hosts of any language rely on.
static_assert(sizeof(EventHeader) == 36 && offsetof(EventHeader, exchangeType) == 0 &&
              offsetof(EventHeader, subevent) == 4 && offsetof(EventHeader, uid) == 8 &&
              offsetof(EventHeader, protocolVersion) == 28 &&
              offsetof(EventHeader, reserved) == 34);
static_assert(sizeof(PushScanRequestRecord) == 132 &&
              offsetof(PushScanRequestRecord, productName) == 0 &&
              offsetof(PushScanRequestRecord, reserved1) == 32 &&
              offsetof(PushScanRequestRecord, ipAddress) == 66 &&
              offsetof(PushScanRequestRecord, reserved2) == 98 &&
              offsetof(PushScanRequestRecord, imageFormat) == 100 &&
              offsetof(PushScanRequestRecord, colorType) == 104 &&
              offsetof(PushScanRequestRecord, loadPaper) == 108 &&
              offsetof(PushScanRequestRecord, paperType) == 112 &&
              offsetof(PushScanRequestRecord, paperWidth) == 116 &&
              offsetof(PushScanRequestRecord, paperHeight) == 120 &&
              offsetof(PushScanRequestRecord, scanX) == 124 &&
              offsetof(PushScanRequestRecord, scanY) == 128);
static_assert(sizeof(PushScanIdRecord) == 104 && offsetof(PushScanIdRecord, productName) == 0 &&
              offsetof(PushScanIdRecord, driverName) == 32 &&
              offsetof(PushScanIdRecord, ipAddress) == 66 &&
              offsetof(PushScanIdRecord, reserved) == 98 &&
              offsetof(PushScanIdRecord, pushScanId) == 100);
static_assert(sizeof(PeerDescription) == 4 * sizeof(void*) &&
              offsetof(PeerDescription, driverName) == 0 &&
              offsetof(PeerDescription, serviceType) == sizeof(void*) &&
              offsetof(PeerDescription, scopeList) == 2 * sizeof(void*) &&
              offsetof(PeerDescription, tagList) == 3 * sizeof(void*));

// The longest computer name.
constexpr std::int32_t PC_NAME_LIMIT = 15;

// The calls that need the running service; inside StatusCallback they would wait for the locks
// that are held around it.
bool MayServe() {
  return !InForkedProcess() && !InsideStatusCallback() && IsServiceRunning() == 1;
}

}  // namespace
}  // namespace zvqrn

extern "C" {

int32_t QRN_EXPORT QRNStartService(PeerFilterCallback filterCallback,
                                   ScanEventCallback eventCallback, StatusCallback statusCallback,
                                   FilterContext filterContext, EventContext eventContext,
                                   StatusContext statusContext) {
  return zvqrn::StartService(zvqrn::HostValues{filterCallback, eventCallback, statusCallback,
                                               filterContext, eventContext, statusContext});
}

int32_t QRN_EXPORT QRNStopService(void) {
  return zvqrn::StopService();
}

int32_t QRN_EXPORT QRNSendData(EventHeader* request, const void* data, int32_t length) {
  if (request == nullptr || data == nullptr || length < 1 || !zvqrn::MayServe()) {
    return 0;
  }
  return zvqrn::SendHostData(request, data, length);
}

int32_t QRN_EXPORT QRNGetPCName(char* buffer, int32_t* length) {
  if (length == nullptr || !zvqrn::MayServe()) {
    return 0;
  }
  const zvqrn::LockScope scope(&zvqrn::service.identityLock);
  if (!scope.Held() || zvqrn::service.pcName == nullptr || zvqrn::service.pcNameLength == 0) {
    return 0;
  }
  const std::int32_t nameLength = zvqrn::service.pcNameLength;
  std::int32_t result = 1;
  if (buffer != nullptr && *length < nameLength) {
    result = QRN_BUFFER_TOO_SMALL;
  } else if (buffer != nullptr) {
    std::memcpy(buffer, zvqrn::service.pcName, static_cast<std::size_t>(nameLength));
  }
  *length = nameLength;
  return result;
}

int32_t QRN_EXPORT QRNSetPCName(const char* name, int32_t length) {
  if (name == nullptr || length < 1 || length > zvqrn::PC_NAME_LIMIT ||
      zvqrn::EndsInsideCharacter(name, length) || !zvqrn::MayServe()) {
    return 0;
  }
  const zvqrn::LockScope scope(&zvqrn::service.identityLock);
  if (!scope.Held()) {
    return 0;
  }
  std::free(zvqrn::service.pcName);
  zvqrn::service.pcName = zvqrn::NewBytes(static_cast<std::int64_t>(length) + 1);
  if (zvqrn::service.pcName == nullptr) {
    return 0;
  }
  std::memcpy(zvqrn::service.pcName, name, static_cast<std::size_t>(length));
  zvqrn::service.pcNameLength = length;
  return 1;
}

}  // extern "C"
