#include "platform/windows/thread_gate.h"

#include <cstring>

#include "platform/windows/windows_headers.h"

static_assert(sizeof(void*) == 4, "the gate is written in 32-bit x86 instructions");

namespace zvqrn::platform {
namespace {

// The number of threads inside; negative once the gate is closed.  It lies in the gate's own
// memory, because a thread touches it after the library may have gone.
volatile LONG* inside = nullptr;

constexpr LONG GATE_CLOSED = static_cast<LONG>(0x80000000);
constexpr SIZE_T PAGE_BYTES = 4096;

// Where the addresses stand in the instructions below.
constexpr std::size_t COUNTER_AT[] = {2, 19, 46};
constexpr std::size_t BODY_AT = 34;

constexpr unsigned char GATE_CODE[] = {
    0x8B, 0x0D, 0,    0,    0, 0,        //  0        mov ecx, [inside]
    0x85, 0xC9,                          //  6 again: test ecx, ecx
    0x78, 0x28,                          //  8        js closed
    0x8D, 0x51, 0x01,                    // 10        lea edx, [ecx + 1]
    0x8B, 0xC1,                          // 13        mov eax, ecx
    0xF0, 0x0F, 0xB1, 0x15, 0, 0, 0, 0,  // 15        lock cmpxchg [inside], edx
    0x74, 0x04,                          // 23        je enter
    0x8B, 0xC8,                          // 25        mov ecx, eax
    0xEB, 0xE9,                          // 27        jmp again
    0xFF, 0x74, 0x24, 0x04,              // 29 enter: push [esp + 4]
    0xB8, 0,    0,    0,    0,           // 33        mov eax, body
    0xFF, 0xD0,                          // 38        call eax
    0x83, 0xC4, 0x04,                    // 40        add esp, 4
    0xF0, 0xFF, 0x0D, 0,    0, 0, 0,     // 43        lock dec [inside]
    0x33, 0xC0,                          // 50 closed: xor eax, eax
    0xC2, 0x04, 0x00,                    // 52        ret 4
};

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

// One reservation: a page for the counter, then a page for the instructions.  It is never freed: a
// thread may be anywhere in it.
ThreadEntry MakeGate(GatedBody body) {
  auto* memory = static_cast<unsigned char*>(
      VirtualAlloc(nullptr, 2 * PAGE_BYTES, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
  if (memory == nullptr) {
    return nullptr;
  }
  unsigned char* code = memory + PAGE_BYTES;
  memcpy(code, GATE_CODE, sizeof GATE_CODE);
  for (const std::size_t at : COUNTER_AT) {
    memcpy(code + at, &memory, sizeof memory);
  }
  memcpy(code + BODY_AT, &body, sizeof body);
  DWORD before = 0;
  if (VirtualProtect(code, PAGE_BYTES, PAGE_EXECUTE_READ, &before) == FALSE) {
    VirtualFree(memory, 0, MEM_RELEASE);
    return nullptr;
  }
  FlushInstructionCache(GetCurrentProcess(), code, PAGE_BYTES);
  inside = reinterpret_cast<volatile LONG*>(memory);
  return reinterpret_cast<ThreadEntry>(code);
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
