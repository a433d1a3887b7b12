#include "base/driver_name.h"

#include "platform/system.h"

namespace zvqrn {

DriverNameResult CallGetTwainName(GetTwainNameFunction function, const char* productName,
                                  char* buffer) {
  if (productName == nullptr || buffer == nullptr) {
    return DRIVER_NAME_BAD_ARGUMENT;
  }
  if (function == nullptr) {
    return DRIVER_NAME_NO_LIBRARY;
  }
  return function(productName, buffer) == 1 ? DRIVER_NAME_FOUND : DRIVER_NAME_UNKNOWN;
}

void LoadUtilityLibrary() {
  service.getTwainName = nullptr;
  service.utilityModule = platform::LoadModule("DRAVLIB");
  if (service.utilityModule != nullptr) {
    service.getTwainName = reinterpret_cast<GetTwainNameFunction>(
        platform::FindModuleFunction(service.utilityModule, "GetTWAINName"));
  }
}

void UnloadUtilityLibrary() {
  service.getTwainName = nullptr;
  if (service.utilityModule != nullptr) {
    platform::UnloadModule(service.utilityModule);
    service.utilityModule = nullptr;
  }
}

}  // namespace zvqrn
