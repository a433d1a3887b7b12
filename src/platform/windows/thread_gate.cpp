#include "platform/windows/thread_gate.h"

#include "platform/windows/thread_gate_code.h"

namespace zvqrn::platform {
namespace {

// The number of threads inside; negative once the gate is closed.  It lies in the gate's own
// memory, because a thread touches it after the library may have gone.
volatile LONG* inside = nullptr;

constexpr LONG GATE_CLOSED = static_cast<LONG>(0x80000000);

ThreadEntry gateEntry = nullptr;

// Used instead of the gate by a library that stays loaded.
GatedBody pinnedBody = nullptr;
volatile LONG pinnedInside = 0;

unsigned __stdcall PinnedEntry(void* argument) {
  InterlockedIncrement(&pinnedInside);
  pinnedBody(argument);
  InterlockedDecrement(&pinnedInside);
  return 0;
}

ThreadEntry PinLibrary(GatedBody body) {
  HMODULE self = nullptr;
  if (GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                         reinterpret_cast<LPCSTR>(&PinnedEntry), &self) == FALSE) {
    return nullptr;
  }
  pinnedBody = body;
  inside = &pinnedInside;
  return &PinnedEntry;
}

// One reservation.  It is never freed: a thread may be anywhere in it.
ThreadEntry MakeGate(GatedBody body) {
  auto* memory = static_cast<GateMemory*>(
      VirtualAlloc(nullptr, sizeof(GateMemory), MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
  if (memory == nullptr) {
    return nullptr;
  }
  WriteGateCode(memory, body);
  DWORD before = 0;
  if (VirtualProtect(memory->code, sizeof memory->code, PAGE_EXECUTE_READ, &before) == FALSE ||
      !DescribeGateFrame(memory)) {
    VirtualFree(memory, 0, MEM_RELEASE);
    return nullptr;
  }
  FlushInstructionCache(GetCurrentProcess(), memory->code, sizeof memory->code);
  inside = &memory->inside;
  return reinterpret_cast<ThreadEntry>(memory->code);
}

}  // namespace

ThreadEntry EntryThroughGate(GatedBody body) {
  if (gateEntry == nullptr) {
    gateEntry = MakeGate(body);
  }
  if (gateEntry == nullptr) {
    gateEntry = PinLibrary(body);
  }
  return gateEntry;
}

std::int32_t ThreadsInside() {
  return inside == nullptr ? 0 : *inside & ~GATE_CLOSED;
}

void CloseGate() {
  if (inside == nullptr) {
    return;
  }
  LONG count = *inside;
  for (LONG seen = InterlockedCompareExchange(inside, count | GATE_CLOSED, count); seen != count;
       seen = InterlockedCompareExchange(inside, count | GATE_CLOSED, count)) {
    count = seen;
  }
}

}  // namespace zvqrn::platform
