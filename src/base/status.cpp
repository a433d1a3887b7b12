#include "base/status.h"

#include "base/service_state.h"
#include "base/text.h"
#include "platform/thread.h"

namespace zvqrn {
namespace {

constexpr std::int32_t STATUS_MESSAGE_SIZE = 64;

}  // namespace

std::int32_t ReportStatus(std::int32_t statusClass, std::int32_t statusCode, const char* message) {
  if (message == nullptr || service.statusCallback == nullptr) {
    return 0;
  }
  char buffer[STATUS_MESSAGE_SIZE];
  CopyBounded(buffer, message, STATUS_MESSAGE_SIZE);
  service.statusCallbackThread.store(platform::CurrentThreadId());
  const std::int32_t result =
      service.statusCallback(statusClass, statusCode, buffer, service.statusContext);
  service.statusCallbackThread.store(0);
  return result;
}

bool InsideStatusCallback() {
  return service.statusCallbackThread.load() == platform::CurrentThreadId();
}

}  // namespace zvqrn
