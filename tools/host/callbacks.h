// The host's three callbacks and what they share with the main loop.  The library calls them on
// threads of its own, several at once; `lock` guards everything below it and the output, and is
// never held while the library is called.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "host/options.h"
#include "host/service_library.h"
#include "platform/sync.h"
#include "zvqrn/zvqrn.h"

namespace zvqrn::host {

// Data that is to be sent to a request's scanner some time after its callback has returned.
struct DueSend {
  std::int64_t dueMs;
  std::int32_t number;
  EventHeader header;
};

// A question to the program that reads this one's output; it belongs to the callback that waits.
struct Question {
  bool isPeer;
  platform::Event* settled;
  bool hasWord;
  std::int32_t word;  // as the callback is to return it
};

struct HostState {
  const HostOptions* options = nullptr;
  const ServiceLibrary* library = nullptr;
  platform::Semaphore* lock = nullptr;
  platform::Event* changed = nullptr;  // set whenever something below has changed
  std::int32_t received = 0;
  std::int32_t answered = 0;
  bool toldNoNetwork = false;
  std::vector<DueSend> dueSends;
  // What --ask needs; see asking.h.
  std::int32_t lastNumber = 0;
  bool asksNoMore = false;
  std::map<std::int32_t, Question*> questions;   // by number, those that wait
  std::map<std::int32_t, EventHeader> requests;  // by number, the last of them
};

// Takes the state's lock; it is given back when the result goes out of scope.
struct GiveLockBack {
  void operator()(platform::Semaphore* lock) const { platform::SignalSemaphore(lock); }
};
using HeldLock = std::unique_ptr<platform::Semaphore, GiveLockBack>;
HeldLock LockState(HostState* state);

// The callbacks; the context of each is the HostState.
std::int32_t QRN_CALLBACK OnPeer(const PeerDescription* peer, FilterContext context);
std::int32_t QRN_CALLBACK OnScanEvent(EventHeader* header, std::int32_t documentKind,
                                      const void* requestData, std::int32_t requestDataSize,
                                      EventContext context);
std::int32_t QRN_CALLBACK OnStatus(std::int32_t statusClass, std::int32_t statusCode,
                                   const char* message, StatusContext context);

// Sends the data whose time has come; called by the main loop.
void SendWhatIsDue(HostState* state);

}  // namespace zvqrn::host
