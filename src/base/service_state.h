// ServiceState: the one record of the service in this process, all zero when the library is loaded.
// Each field names what guards it; the atomic words may also be read without their lock.  The
// order of the locks stands in docs/architecture.md.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/service_lock.h"
#include "base/tagged_list.h"
#include "base/thread_state.h"
#include "platform/waker.h"
#include "zvqrn/zvqrn.h"

namespace zvqrn {

// GetTWAINName of the utility library: 1 = a driver name (at most 33 bytes and a NUL) was written.
using GetTwainNameFunction = std::int32_t(QRN_EXPORT*)(const char* productName, char* driverName);

// The jobs whose uids share a hash, oldest first (eventserver/job_index.h).
struct JobRecord;
struct JobBucket {
  JobRecord* first;
  JobRecord* last;
};
constexpr std::int32_t JOB_BUCKETS = 1024;

// The first of the discovery requests that share a hash of sender and XID (discovery/requests.h).
struct DiscoveryRequest;
constexpr std::int32_t DISCOVERY_BUCKETS = 1024;

struct ServiceState {
  // The run flag: 0 or 1.  The lock lives from the library's load to its unload.
  ServiceLock runLock;
  std::atomic<std::int32_t> serviceRunning;

  // The process whose service this is, from the beginning of a start to the end of its stop; 0
  // without one.  A process that it forks meanwhile has a copy of all this, with locks in any
  // state, and none of the threads.
  std::atomic<std::uint32_t> ownerProcess;

  // 1 from the moment the library is being unloaded or the process ends: every thread stops, also
  // one that had not yet set its state word.
  std::atomic<std::int32_t> unloading;

  // One start or stop at a time; lives as long as runLock.  Waited for, not polled: a stop can
  // take as long as the host's callbacks do.
  platform::Semaphore* lifecycleTurn;

  // The host's values, written by a start before it starts any thread and only read afterwards.
  PeerFilterCallback filterCallback;
  FilterContext filterContext;
  ScanEventCallback eventCallback;
  EventContext eventContext;
  StatusCallback statusCallback;
  StatusContext statusContext;

  // The thread that is inside statusCallback, or 0: the exports refuse it, because locks are held.
  std::atomic<std::uintptr_t> statusCallbackThread;

  // Who this PC is; guarded by identityLock, which a start makes and a stop destroys.
  ServiceLock identityLock;
  char* pcName;  // owned; pcNameLength bytes and a NUL, or null
  std::int32_t pcNameLength;
  std::uint32_t localAddress;  // network byte order; 0 = none usable
  std::uint32_t eventPort;     // host byte order; 0 before the listener has bound it

  // The event server's listener and its connections.
  ThreadState listenerState;
  ServiceLock listenerStateLock;
  ThreadState connectionState;  // THREAD_IDLE, THREAD_STARTING or THREAD_RUNNING
  // The main connection's socket from its acceptance until its end is seen; then NO_SOCKET, and
  // only then may it be closed.  Written under the lock.
  std::atomic<platform::SocketHandle> connectionSocket;
  ServiceLock connectionStateLock;
  ServiceLock extraConnectionSlots;  // one count for each extra connection that may still come

  // The tables of the main connection; their locks exist while one is served.
  TaggedList jobTable;
  ServiceLock jobTableLock;
  JobBucket jobIndex[JOB_BUCKETS];  // of jobTable, by the uids of its headers
  std::uint64_t jobsAdded;          // the age of the next job; both under jobTableLock
  TaggedList sendQueue;
  ServiceLock sendQueueLock;
  TaggedList deliveryList;
  ServiceLock deliveryListLock;
  ListNode* deliveryLook;  // the next entry to be looked at; the main connection's thread only

  // Wakes the main connection's thread when something has been queued; null when the system
  // refused it, and then the thread looks after each of its waits.  It lives as long as the tables.
  platform::Waker* connectionWaker;

  // Bytes received on the main connection that belong to its next message; owned, or null and 0.
  // Only the main connection's thread touches them, and the fields after them.
  char* incomingLeftover;
  std::int32_t incomingLeftoverLength;
  std::int64_t incomingLeftoverSince;  // when its last bytes came, in monotonic milliseconds
  // When sending gives up because the service stops, in monotonic milliseconds; 0 = not stopping.
  std::int64_t sendDeadline;

  // Discovery's listener, and the requests that are being answered, oldest first.
  ThreadState discoveryState;
  ServiceLock discoveryStateLock;
  TaggedList discoveryTable;
  ServiceLock discoveryTableLock;
  DiscoveryRequest* discoveryIndex[DISCOVERY_BUCKETS];  // of the table, under its lock too
  std::atomic<std::int32_t> replyThreads;               // that may still use a request of the table

  // The watcher of address changes.  The events are made by a start and closed when every thread
  // of its run has ended; the watcher writes the two words.
  std::atomic<std::int32_t> watchEnabled;  // 1 while a watcher is meant to run
  ThreadState watcherState;                // without a lock
  std::atomic<std::int32_t> waiting;       // 1 while the service waits for a first usable address
  platform::Event* watcherStopEvent;       // tells the watcher to end
  platform::Event* rejoinEvent;            // tells discovery that the address has changed

  // 1 while the use of the socket library that a start began has not been ended.
  std::atomic<std::int32_t> socketsStarted;

  // The utility library and its function, or null; written while the library is loaded only.
  void* utilityModule;
  GetTwainNameFunction getTwainName;
};

extern ServiceState service;

// True from the moment the event server has been told to stop until it has.
inline bool StopRequested() {
  return service.listenerState.load() == THREAD_STOP_REQUESTED || service.unloading.load() != 0;
}

// The same for discovery, whose replies stop with it.
inline bool DiscoveryStopRequested() {
  return service.discoveryState.load() == THREAD_STOP_REQUESTED || service.unloading.load() != 0;
}

// True in a process that was forked while the service was in use: nothing of it may be touched
// there, least of all its locks.
bool InForkedProcess();

// 1 = the service runs, 0 = it does not, -1 = runLock or the flag is unusable.
std::int32_t IsServiceRunning();

}  // namespace zvqrn
