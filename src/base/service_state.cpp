#include "base/service_state.h"

#include "platform/system.h"

namespace zvqrn {

ServiceState service;

bool InForkedProcess() {
  const std::uint32_t owner = service.ownerProcess.load();
  return owner != 0 && owner != platform::CurrentProcessId();
}

std::int32_t IsServiceRunning() {
  const LockScope scope(&service.runLock);
  if (!scope.Held()) {
    return -1;
  }
  const std::int32_t running = service.serviceRunning.load();
  return running == 0 || running == 1 ? running : -1;
}

}  // namespace zvqrn
