#include "discovery/listener.h"

#include "base/local_identity.h"
#include "base/service_state.h"
#include "discovery/reply.h"
#include "discovery/requests.h"
#include "platform/socket.h"
#include "platform/sync.h"
#include "platform/thread.h"

namespace zvqrn {
namespace {

constexpr char SLP_MULTICAST_GROUP[] = "239.255.255.253";

// A datagram that is longer is dropped.
constexpr std::int32_t RECEIVE_BUFFER_SIZE = 1400;

// Every wait for datagrams ends after this long, to look for a stop or a new address.
constexpr std::int32_t DISCOVERY_WAIT_MS = 300;

// A datagram that is too long, and now and then a word of the system's about another one, make one
// receive fail.  So many in a row mean that the socket is broken: then each is followed by a pause.
constexpr std::int32_t FAILURES_AT_ONCE = 64;
constexpr std::int32_t FAILURE_PAUSE_MS = 10;

// The socket and the group that it is to be in.
struct DiscoverySocket {
  platform::SocketHandle socket;
  platform::GroupMembership membership;
  bool joined;
  std::int32_t failures;  // of receives, in a row
};

bool Join(DiscoverySocket* discovery) {
  std::uint32_t group = 0;
  discovery->joined = platform::TextToAddress(SLP_MULTICAST_GROUP, &group) &&
                      platform::JoinGroup(discovery->socket, group, &discovery->membership);
  return discovery->joined;
}

bool OpenDiscoverySocket(DiscoverySocket* discovery) {
  discovery->socket = platform::OpenUdpSocket();
  return discovery->socket != platform::NO_SOCKET &&
         platform::BindDatagramPort(discovery->socket, 0, SLP_PORT, true) && Join(discovery);
}

// The address may have changed since the start took it.
bool RefreshAddress() {
  const LockScope scope(&service.identityLock);
  const PickResult picked = scope.Held() ? PickLocalAddress() : PICK_FAILED;
  return picked == PICK_USABLE || picked == PICK_ONLY_LOOPBACK;
}

bool SetUpDiscovery(DiscoverySocket* discovery) {
  if (OpenDiscoverySocket(discovery) && RefreshAddress() &&
      CreateServiceLock(&service.discoveryTableLock, 1, 1)) {
    return true;
  }
  if (discovery->socket != platform::NO_SOCKET) {
    platform::CloseSocket(discovery->socket);
  }
  return false;
}

// The event is reset first, so that a change during the rejoin leads to another one.  A rejoin that
// fails is tried again on each pass.
void RejoinGroupIfAddressChanged(DiscoverySocket* discovery) {
  if (service.watchEnabled.load() == 1 && service.watcherState.load() == THREAD_RUNNING &&
      platform::WaitEvent(service.rejoinEvent, 0) == platform::SYNC_SIGNALLED) {
    platform::ClearEvent(service.rejoinEvent);
    platform::LeaveGroup(discovery->socket, discovery->membership);
    discovery->joined = false;
  }
  if (!discovery->joined) {
    Join(discovery);
  }
}

// One wait and what it brings; false when the socket cannot be waited on any more.
bool ServeOnce(DiscoverySocket* discovery) {
  RejoinGroupIfAddressChanged(discovery);
  const platform::SocketWait wait = platform::WaitReadable(discovery->socket, DISCOVERY_WAIT_MS);
  if (wait != platform::SOCKET_READY) {
    return wait == platform::SOCKET_TIMED_OUT;
  }
  char buffer[RECEIVE_BUFFER_SIZE];
  platform::Endpoint sender{};
  const std::int32_t received =
      platform::ReceiveDatagram(discovery->socket, buffer, RECEIVE_BUFFER_SIZE, &sender);
  discovery->failures = received < 0 ? discovery->failures + 1 : 0;
  if (discovery->failures > FAILURES_AT_ONCE) {
    discovery->failures = FAILURES_AT_ONCE;
    platform::SleepMilliseconds(FAILURE_PAUSE_MS);
  }
  if (received > 0) {
    ListNode* node = HandleDatagram(buffer, received, sender.address);
    if (node != nullptr) {
      StartReply(node);
    }
  }
  return true;
}

void DiscoveryListener(void* /*argument*/) {
  DiscoverySocket discovery{};
  bool serving = false;
  {
    // Held over the set-up, so that the start sees only its outcome.
    const LockScope scope(&service.discoveryStateLock);
    serving = scope.Held() && SetUpDiscovery(&discovery);
    ReportSetUp(&service.discoveryState, serving);
  }
  if (!serving) {
    return;
  }
  while (!DiscoveryStopRequested() && ServeOnce(&discovery)) {
  }
  // The port stays taken meanwhile: who searches now gets no reply, and no error either.
  WaitForReplies();
  platform::CloseSocket(discovery.socket);
  DestroyTable(&service.discoveryTable, &service.discoveryTableLock);
  WriteThreadState(&service.discoveryState, &service.discoveryStateLock, THREAD_IDLE);
}

}  // namespace

bool StartDiscovery() {
  // It asks the utility library, and may call StatusCallback when it begins.
  return StartReportingThread(&DiscoveryListener, platform::STACK_FOR_HOST_CALLBACKS,
                              &service.discoveryState, &service.discoveryStateLock);
}

}  // namespace zvqrn
