// What hosts of other compilers rely on under Windows: record layouts, calling conventions, and
// that the library's frames on a thread's stack are as the system wants them.

#include <gtest/gtest.h>

#include <algorithm>
#include <type_traits>
#include <vector>

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

// The modules through which the system finds the callers of the function that calls this, up to the
// one where threads begin; 0 for memory without a module; -1 where it knows no caller.
std::vector<DWORD64> CallersModules() {
  const auto beginning = reinterpret_cast<DWORD64>(GetModuleHandleA("kernel32.dll"));
  std::vector<DWORD64> modules;
  CONTEXT context{};
  RtlCaptureContext(&context);
  while (modules.empty() || modules.back() != beginning) {
    DWORD64 base = 0;
    RUNTIME_FUNCTION* function = RtlLookupFunctionEntry(context.Rip, &base, nullptr);
    if (function == nullptr) {
      modules.push_back(static_cast<DWORD64>(-1));
      break;
    }
    HMODULE module = nullptr;
    GetModuleHandleExA(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
        reinterpret_cast<LPCSTR>(context.Rip), &module);
    modules.push_back(reinterpret_cast<DWORD64>(module));
    void* handlerData = nullptr;
    DWORD64 frame = 0;
    RtlVirtualUnwind(UNW_FLAG_NHANDLER, base, context.Rip, function, &context, &handlerData, &frame,
                     nullptr);
  }
  return modules;
}

// A debugger, and the system with an exception of the callback in its hands, look through the stack
// like this: from the host's code through the library's and through the gate, which lies outside of
// it, to the thread's beginning.
TEST(Stack, OfACallbackLeadsToTheThreadsBeginning) {
  Host host(LibraryPath());
  std::vector<DWORD64> modules;
  host.verdict = [&](EventHeader*) {
    modules = CallersModules();
    return QRN_RESPONSE_OK;
  };
  ASSERT_EQ(host.Start(), 1);
  Scanner scanner;
  scanner.Send(Request(Identity("2.00", "1"), DOCUMENT_V2));
  EXPECT_NE(scanner.Receive(), "");
  EXPECT_EQ(host.Stop(), 1);
  const auto seen = [&](const char* name) {
    return std::count(modules.begin(), modules.end(),
                      name == nullptr ? 0 : reinterpret_cast<DWORD64>(GetModuleHandleA(name)));
  };
  EXPECT_GT(seen("ZVQRN.dll"), 0);
  EXPECT_EQ(seen(nullptr), 1) << "the gate";
  EXPECT_EQ(seen("kernel32.dll"), 1);
}
#endif

}  // namespace
}  // namespace zvqrn::test
