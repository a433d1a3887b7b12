#include "base/service_state.h"

namespace zvqrn {

ServiceState service;

std::int32_t IsServiceRunning() {
  const LockScope scope(&service.runLock);
  if (!scope.Held()) {
    return -1;
  }
  const std::int32_t running = service.serviceRunning.load();
  return running == 0 || running == 1 ? running : -1;
}

}  // namespace zvqrn
