// What hosts of other compilers rely on under Windows: record layouts, calling conventions, and
// that the library's frames on a thread's stack are as the system wants them.

#include <gtest/gtest.h>

#include <type_traits>

#include "support/host.h"
#include "support/messages.h"
#include "support/scanner.h"
// After the headers above, whose words are macros in this one.
#include "common/windows_network.h"

namespace zvqrn::test {
namespace {

// The one record of the interface that holds pointers; the bytes of the others, which are the same
// everywhere, are compared by event_flow_test.cpp.
#if defined(__i386__)
static_assert(sizeof(PeerDescription) == 16 && offsetof(PeerDescription, tagList) == 12);

// cdecl callbacks leave their arguments to the library; the other tests have it call them.
using Stdcall = std::int32_t(__attribute__((stdcall)) *)(const PeerDescription*, void*);
static_assert(!std::is_same_v<PeerFilterCallback, Stdcall>);

// Calls a function with `count` zeros; gives how many bytes of arguments it has removed.
template <typename Function>
std::int32_t BytesRemoved(Function function, std::int32_t count) {
  std::int32_t removed = 0;
  asm volatile(
      "movl %%esp, %%edi; 1: pushl $0; loop 1b; movl %%esp, %%esi; call *%%eax\n"
      "movl %%esp, %%edx; subl %%esi, %%edx; movl %%edi, %%esp\n"
      : "=d"(removed), "+a"(function), "+c"(count)
      :
      : "esi", "edi", "memory", "cc");
  return removed;
}

TEST(CallingConvention, OfEveryExportIsStdcall) {
  const Host host(LibraryPath());
  // More zeros than any export takes.
  EXPECT_EQ(BytesRemoved(host.library.startService, 8), 24);
  EXPECT_EQ(BytesRemoved(host.library.stopService, 8), 0);
  EXPECT_EQ(BytesRemoved(host.library.sendData, 8), 12);
  EXPECT_EQ(BytesRemoved(host.library.getPcName, 8), 8);
  EXPECT_EQ(BytesRemoved(host.library.setPcName, 8), 8);
}
#else
static_assert(sizeof(PeerDescription) == 32 && offsetof(PeerDescription, tagList) == 24);
#endif

LONG WINAPI EndWithSeven(EXCEPTION_POINTERS* /*what*/) {
  TerminateProcess(GetCurrentProcess(), 7);
  return EXCEPTION_EXECUTE_HANDLER;
}

// The handler is found at the beginning of the thread's stack, past every frame of the library and
// past the gate.
TEST(Callback, ExceptionReachesTheHostsOwnHandler) {
  EXPECT_EXIT(
      {
        SetUnhandledExceptionFilter(&EndWithSeven);
        Host host(LibraryPath());
        host.verdict = [](EventHeader*) {
          RaiseException(0xE0000001, EXCEPTION_NONCONTINUABLE, 0, nullptr);
          return QRN_RESPONSE_OK;
        };
        host.Start();
        Scanner scanner;
        scanner.Send(Request(Identity("2.00", "1"), DOCUMENT_V2));
        scanner.Receive();
        exit(1);
      },
      testing::ExitedWithCode(7), "");
}

}  // namespace
}  // namespace zvqrn::test
