// Calling conventions and record layouts of 32-bit Windows, which hosts of other compilers rely on.

#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "support/host.h"

namespace zvqrn::test {
namespace {

static_assert(sizeof(EventHeader) == 36 && offsetof(EventHeader, uid) == 8 &&
              offsetof(EventHeader, protocolVersion) == 28);
static_assert(sizeof(PushScanRequestRecord) == 132 &&
              offsetof(PushScanRequestRecord, ipAddress) == 66 &&
              offsetof(PushScanRequestRecord, imageFormat) == 100 &&
              offsetof(PushScanRequestRecord, scanY) == 128);
static_assert(sizeof(PushScanIdRecord) == 104 && offsetof(PushScanIdRecord, driverName) == 32 &&
              offsetof(PushScanIdRecord, ipAddress) == 66 &&
              offsetof(PushScanIdRecord, pushScanId) == 100);
static_assert(sizeof(PeerDescription) == 16 && offsetof(PeerDescription, tagList) == 12);

// cdecl callbacks leave their arguments to the library; the other tests have it call them.
using Cdecl = std::int32_t(__attribute__((cdecl)) *)(EventHeader*, std::int32_t, const void*,
                                                     std::int32_t, void*);
using Stdcall = std::int32_t(__attribute__((stdcall)) *)(EventHeader*, std::int32_t, const void*,
                                                         std::int32_t, void*);
static_assert(std::is_same_v<ScanEventCallback, Cdecl> && !std::is_same_v<Cdecl, Stdcall>);

// Calls a function with `count` zeros; gives how many bytes of arguments it has removed.
template <typename Function>
std::int32_t BytesRemoved(Function function, std::int32_t count) {
  std::int32_t removed = 0;
  asm volatile(
      "movl %%esp, %%edi\n"
      "1: pushl $0\n"
      "loop 1b\n"
      "movl %%esp, %%esi\n"
      "call *%%eax\n"
      "movl %%esp, %%edx\n"
      "subl %%esi, %%edx\n"
      "movl %%edi, %%esp\n"
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
