// The gate in 32-bit x86 instructions.  A thread's procedure is stdcall, the body is cdecl.
#include <cstddef>
#include <cstring>

#include "platform/windows/thread_gate_code.h"

static_assert(sizeof(void*) == 4, "for 32-bit processes");

namespace zvqrn::platform {
namespace {

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

}  // namespace

void WriteGateCode(GateMemory* memory, GatedBody body) {
  const volatile LONG* inside = &memory->inside;
  memcpy(memory->code, GATE_CODE, sizeof GATE_CODE);
  for (const std::size_t at : COUNTER_AT) {
    memcpy(memory->code + at, &inside, sizeof inside);
  }
  memcpy(memory->code + BODY_AT, &body, sizeof body);
}

// Exception handlers are a chain that begins in the thread's own record and needs no frame.
bool DescribeGateFrame(GateMemory* /*memory*/) {
  return true;
}

}  // namespace zvqrn::platform
