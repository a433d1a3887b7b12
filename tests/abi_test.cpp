// Calling conventions and record layouts of 32-bit Windows, which hosts of other compilers rely on.

#include <gtest/gtest.h>

#include <type_traits>

#include "support/host.h"

namespace zvqrn::test {
namespace {

// Four pointers of 32 bits; the bytes of the other records are compared by event_flow_test.cpp.
static_assert(sizeof(PeerDescription) == 16);

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

}  // namespace
}  // namespace zvqrn::test
