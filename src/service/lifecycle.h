// Start and stop of the service.  Starts and stops take turns; each returns only when the threads
// that it ended are gone.  Neither may be called from a thread of the library or from inside a
// callback: there they give 0, because they would wait for their own caller.
#pragma once

#include <cstdint>

#include "zvqrn/zvqrn.h"

namespace zvqrn {

// What the host hands over at a start.
struct HostValues {
  PeerFilterCallback filterCallback;
  ScanEventCallback eventCallback;
  StatusCallback statusCallback;
  FilterContext filterContext;
  EventContext eventContext;
  StatusContext statusContext;
};

// The work of QRNStartService and QRNStopService, with their results.
std::int32_t StartService(const HostValues& host);
std::int32_t StopService();

}  // namespace zvqrn
