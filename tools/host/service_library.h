// The library as a host gets it: loaded at run time, its five functions looked up by name.
#pragma once

#include <string>

#include "host/options.h"
#include "zvqrn/zvqrn.h"

namespace zvqrn::host {

struct ServiceLibrary {
  void* module = nullptr;
  decltype(&QRNStartService) startService = nullptr;
  decltype(&QRNStopService) stopService = nullptr;
  decltype(&QRNSendData) sendData = nullptr;
  decltype(&QRNGetPCName) getPcName = nullptr;
  decltype(&QRNSetPCName) setPcName = nullptr;
};

// Gives the path of the library that the options name, or of the one that belongs to this program:
// beside it, or where an installation puts it.
std::string LibraryPath(const HostOptions& options);

// Loads the library at `path` and finds its functions; false with a sentence in `why` that a user
// can act on.  The caller unloads it.
bool LoadServiceLibrary(const std::string& path, ServiceLibrary* library, std::string* why);
void UnloadServiceLibrary(ServiceLibrary* library);

}  // namespace zvqrn::host
