#include "support/replaced_calls.h"

#include "base/service_state.h"
#include "platform/clock.h"
#include "platform/socket.h"
#include "platform/system.h"
#include "platform/thread.h"
#include "platform/waker.h"

namespace zvqrn::test {

std::atomic<std::int64_t> stoppedClock{0};
std::atomic<std::int32_t> connectionWaits{0};
std::atomic<std::int32_t> longestWait{0};
std::atomic<bool> waitsAreEndless{false};
std::atomic<std::int32_t> refusedAccepts{0};
std::atomic<void (*)()> afterPeerLook{nullptr};
std::atomic<std::int32_t> threadsBeforeRefusal{-1};
std::atomic<std::int32_t> emptySends{0};
std::atomic<void (*)()> beforeSend{nullptr};
std::atomic<char> leadByte{0};
std::atomic<std::uint32_t> hostAddress{0};
std::atomic<std::int32_t> addressReads{0};
std::atomic<std::int32_t> unreadableAddresses{0};
std::atomic<bool> resolvesToNothing{false};
std::atomic<std::int32_t> refusedJoins{0};
std::atomic<std::uintptr_t> askingThread{0};
std::atomic<bool> completesInstead{false};
std::atomic<std::uintptr_t> testThread{0};

namespace {

// Longer than a test is patient.
constexpr std::int32_t ENDLESS_MS = 60000;

bool OnTestThread() {
  return platform::CurrentThreadId() == testThread.load();
}

// Notes a wait of the library for a socket and gives how long it really lasts.
std::int32_t NoteWait(platform::SocketHandle socket, std::int32_t milliseconds) {
  if (OnTestThread()) {
    return milliseconds;
  }
  if (milliseconds > longestWait.load()) {
    longestWait = milliseconds;
  }
  if (socket != service.connectionSocket.load()) {
    return milliseconds;
  }
  connectionWaits++;
  return waitsAreEndless.load() ? ENDLESS_MS : milliseconds;
}

}  // namespace
}  // namespace zvqrn::test

using zvqrn::platform::GroupMembership;
using zvqrn::platform::HostAddressResult;
using zvqrn::platform::SocketHandle;
using zvqrn::platform::SocketWait;
using zvqrn::platform::StackKind;
using zvqrn::platform::ThreadProcedure;
using zvqrn::platform::Waker;
using zvqrn::platform::WakerWait;
using zvqrn::test::OnTestThread;

#define REAL_ADDRESS __real__ZN5zvqrn8platform16FirstHostAddressEPKcPj
#define WRAP_ADDRESS __wrap__ZN5zvqrn8platform16FirstHostAddressEPKcPj
#define REAL_CLOCK __real__ZN5zvqrn8platform21MonotonicMillisecondsEv
#define WRAP_CLOCK __wrap__ZN5zvqrn8platform21MonotonicMillisecondsEv
#define REAL_START __real__ZN5zvqrn8platform11StartThreadEPFvPvES1_NS0_9StackKindE
#define WRAP_START __wrap__ZN5zvqrn8platform11StartThreadEPFvPvES1_NS0_9StackKindE
// HANDLE_LETTER comes from the build: a socket handle is another type on another system.
#define JOIN_NAMES(a, b, c) a##b##c
#define JOIN(a, b, c) JOIN_NAMES(a, b, c)
#define REAL(before, after) JOIN(__real__ZN5zvqrn8platform##before, HANDLE_LETTER, after)
#define WRAP(before, after) JOIN(__wrap__ZN5zvqrn8platform##before, HANDLE_LETTER, after)

#define WRAP_LEAD __wrap__ZN5zvqrn8platform10IsLeadByteEc

extern "C" {

bool WRAP_LEAD(char byte) {
  return byte != 0 && byte == zvqrn::test::leadByte.load();
}

HostAddressResult REAL_ADDRESS(const char* name, std::uint32_t* address);
HostAddressResult WRAP_ADDRESS(const char* name, std::uint32_t* address) {
  zvqrn::test::addressReads++;
  if (zvqrn::test::unreadableAddresses.load() > 0) {
    zvqrn::test::unreadableAddresses--;
    return zvqrn::platform::HOST_ADDRESS_UNREADABLE;
  }
  if (zvqrn::test::resolvesToNothing.load()) {
    return zvqrn::platform::HOST_ADDRESS_NONE;
  }
  *address = zvqrn::test::hostAddress.load();
  return *address != 0 ? zvqrn::platform::HOST_ADDRESS_FOUND : REAL_ADDRESS(name, address);
}

bool REAL(9JoinGroupE, jPNS0_15GroupMembershipE)(SocketHandle socket, std::uint32_t group,
                                                 GroupMembership* membership);
bool WRAP(9JoinGroupE, jPNS0_15GroupMembershipE)(SocketHandle socket, std::uint32_t group,
                                                 GroupMembership* membership) {
  if (zvqrn::test::refusedJoins.load() > 0) {
    zvqrn::test::refusedJoins--;
    return false;
  }
  return REAL(9JoinGroupE, jPNS0_15GroupMembershipE)(socket, group, membership);
}

std::int64_t REAL_CLOCK();
std::int64_t WRAP_CLOCK() {
  const std::int64_t stopped = zvqrn::test::stoppedClock.load();
  return OnTestThread() || stopped == 0 ? REAL_CLOCK() : stopped;
}

SocketWait REAL(12WaitReadableE, i)(SocketHandle socket, std::int32_t milliseconds);
SocketWait WRAP(12WaitReadableE, i)(SocketHandle socket, std::int32_t milliseconds) {
  return REAL(12WaitReadableE, i)(socket, zvqrn::test::NoteWait(socket, milliseconds));
}

SocketWait REAL(12WaitWritableE, i)(SocketHandle socket, std::int32_t milliseconds);
SocketWait WRAP(12WaitWritableE, i)(SocketHandle socket, std::int32_t milliseconds) {
  return REAL(12WaitWritableE, i)(socket, zvqrn::test::NoteWait(socket, milliseconds));
}

WakerWait REAL(19WaitReadableOrWokenE, PNS0_5WakerEi)(SocketHandle socket, Waker* waker,
                                                      std::int32_t milliseconds);
WakerWait WRAP(19WaitReadableOrWokenE, PNS0_5WakerEi)(SocketHandle socket, Waker* waker,
                                                      std::int32_t milliseconds) {
  return REAL(19WaitReadableOrWokenE, PNS0_5WakerEi)(socket, waker,
                                                     zvqrn::test::NoteWait(socket, milliseconds));
}

SocketHandle REAL(16AcceptConnectionE, )(SocketHandle listening);
SocketHandle WRAP(16AcceptConnectionE, )(SocketHandle listening) {
  if (zvqrn::test::refusedAccepts.load() > 0) {
    zvqrn::test::refusedAccepts--;
    return zvqrn::platform::NO_SOCKET;
  }
  return REAL(16AcceptConnectionE, )(listening);
}

bool REAL(15PeerMayHaveGoneE, )(SocketHandle socket);
bool WRAP(15PeerMayHaveGoneE, )(SocketHandle socket) {
  const bool gone = REAL(15PeerMayHaveGoneE, )(socket);
  if (void (*const next)() = zvqrn::test::afterPeerLook.exchange(nullptr)) {
    next();
  }
  return gone;
}

std::uintptr_t REAL_START(ThreadProcedure procedure, void* argument, StackKind stack);
std::uintptr_t WRAP_START(ThreadProcedure procedure, void* argument, StackKind stack) {
  const bool counts = zvqrn::test::threadsBeforeRefusal.load() >= 0;
  if (counts && zvqrn::test::threadsBeforeRefusal.fetch_sub(1) == 0) {
    return 0;
  }
  return REAL_START(procedure, argument, stack);
}

std::int32_t REAL(9SendBytesE, PKvi)(SocketHandle socket, const void* bytes, std::int32_t size);
std::int32_t WRAP(9SendBytesE, PKvi)(SocketHandle socket, const void* bytes, std::int32_t size) {
  if (void (*const act)() = OnTestThread() ? nullptr : zvqrn::test::beforeSend.load()) {
    act();
  }
  if (!OnTestThread() && zvqrn::test::emptySends.load() > 0) {
    zvqrn::test::emptySends--;
    return 0;
  }
  return REAL(9SendBytesE, PKvi)(socket, bytes, size);
}

}  // extern "C"
