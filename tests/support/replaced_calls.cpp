#include "support/replaced_calls.h"

#include "platform/clock.h"
#include "platform/socket.h"
#include "platform/thread.h"

namespace zvqrn::test {

std::atomic<std::int64_t> clockAhead{0};
std::atomic<std::int32_t> threadsBeforeRefusal{-1};
std::atomic<std::int32_t> emptySends{0};
std::atomic<char> leadByte{0};
std::atomic<std::uint32_t> hostAddress{0};
std::atomic<std::int32_t> addressReads{0};
thread_local bool isTestThread = false;

}  // namespace zvqrn::test

using zvqrn::platform::SocketHandle;
using zvqrn::platform::StackKind;
using zvqrn::platform::ThreadProcedure;

#define REAL_ADDRESS __real__ZN5zvqrn8platform16FirstHostAddressEPKcPj
#define WRAP_ADDRESS __wrap__ZN5zvqrn8platform16FirstHostAddressEPKcPj
#define REAL_SECONDS __real__ZN5zvqrn8platform12WholeSecondsEv
#define WRAP_SECONDS __wrap__ZN5zvqrn8platform12WholeSecondsEv
#define REAL_START __real__ZN5zvqrn8platform11StartThreadEPFvPvES1_NS0_9StackKindE
#define WRAP_START __wrap__ZN5zvqrn8platform11StartThreadEPFvPvES1_NS0_9StackKindE
// SEND_BYTES comes from the build: a socket handle is another type on another system.
#define JOIN_NAMES(a, b) a##b
#define JOIN(a, b) JOIN_NAMES(a, b)
#define REAL_SEND JOIN(__real_, SEND_BYTES)
#define WRAP_SEND JOIN(__wrap_, SEND_BYTES)

#define WRAP_LEAD __wrap__ZN5zvqrn8platform10IsLeadByteEc

extern "C" {

bool WRAP_LEAD(char byte) {
  return byte != 0 && byte == zvqrn::test::leadByte.load();
}

bool REAL_ADDRESS(const char* name, std::uint32_t* address);
bool WRAP_ADDRESS(const char* name, std::uint32_t* address) {
  zvqrn::test::addressReads++;
  *address = zvqrn::test::hostAddress.load();
  return *address != 0 || REAL_ADDRESS(name, address);
}

std::int64_t REAL_SECONDS();
std::int64_t WRAP_SECONDS() {
  return REAL_SECONDS() + zvqrn::test::clockAhead.load();
}

std::uintptr_t REAL_START(ThreadProcedure procedure, void* argument, StackKind stack);
std::uintptr_t WRAP_START(ThreadProcedure procedure, void* argument, StackKind stack) {
  const bool counts = zvqrn::test::threadsBeforeRefusal.load() >= 0;
  if (counts && zvqrn::test::threadsBeforeRefusal.fetch_sub(1) == 0) {
    return 0;
  }
  return REAL_START(procedure, argument, stack);
}

std::int32_t REAL_SEND(SocketHandle socket, const void* bytes, std::int32_t size);
std::int32_t WRAP_SEND(SocketHandle socket, const void* bytes, std::int32_t size) {
  if (!zvqrn::test::isTestThread && zvqrn::test::emptySends.load() > 0) {
    zvqrn::test::emptySends--;
    return 0;
  }
  return REAL_SEND(socket, bytes, size);
}

}  // extern "C"
