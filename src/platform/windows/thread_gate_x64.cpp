// The gate in x86-64 instructions.
//
// There is one calling convention: the argument is in rcx, which nothing before the call touches;
// rax, rdx and r8 are anybody's.  The body finds its 32 bytes of shadow space above the return
// address, and a stack that is a multiple of 16 at the call: at the gate's first instruction it is
// one return address off that, and 0x28 makes up for both.
//
// Addresses stand as distances from the next instruction, which are the same wherever the memory
// lies, so the instructions are copied as they are.
//
// The system finds a function's caller by tables, not by frame pointers.  A function without an
// entry passes for one that leaves the stack alone: a look through the stack would take shadow
// space for a return address and go astray.  Debuggers look so, and the system itself when the
// host's callback meets an exception: the handler that the host has set for its whole process
// (SetUnhandledExceptionFilter) is found at the thread's beginning.  So the gate has an entry.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/windows/thread_gate_code.h"

static_assert(sizeof(void*) == 8, "for 64-bit processes");

namespace zvqrn::platform {
namespace {

constexpr unsigned char GATE_CODE[] = {
    0x48, 0x83, 0xEC, 0x28,                    //  0        sub rsp, 0x28
    0x8B, 0x15, 0xF6, 0xEF, 0xFF, 0xFF,        //  4        mov edx, [inside]
    0x85, 0xD2,                                // 10 again: test edx, edx
    0x78, 0x22,                                // 12        js closed
    0x44, 0x8D, 0x42, 0x01,                    // 14        lea r8d, [rdx + 1]
    0x8B, 0xC2,                                // 18        mov eax, edx
    0xF0, 0x44, 0x0F, 0xB1, 0x05,              // 20        lock cmpxchg [inside], r8d
    0xE3, 0xEF, 0xFF, 0xFF,                    //
    0x74, 0x04,                                // 29        je enter
    0x8B, 0xD0,                                // 31        mov edx, eax
    0xEB, 0xE7,                                // 33        jmp again
    0xFF, 0x15, 0x0F, 0x00, 0x00, 0x00,        // 35 enter: call [body]
    0xF0, 0xFF, 0x0D, 0xD0, 0xEF, 0xFF, 0xFF,  // 41        lock dec [inside]
    0x33, 0xC0,                                // 48 closed: xor eax, eax
    0x48, 0x83, 0xC4, 0x28,                    // 50        add rsp, 0x28
    0xC3,                                      // 54        ret
};

// Version 1; the first 4 bytes are the prologue, described by one code: at offset 4 the stack has
// grown by (4 + 1) * 8 bytes.  The codes fill a multiple of 4 bytes.
constexpr unsigned char FRAME[] = {0x01, 4, 1, 0, 4, 0x42, 0, 0};

// What is in the page of the instructions.
struct GatePage {
  unsigned char code[56];
  GatedBody body;
  unsigned char frame[sizeof FRAME];
  RUNTIME_FUNCTION entry;  // its addresses count from the gate's memory
};
static_assert(offsetof(GateMemory, code) == 4096 && offsetof(GatePage, body) == 56 &&
                  sizeof GATE_CODE <= sizeof GatePage::code,
              "the distances in the instructions");

}  // namespace

void WriteGateCode(GateMemory* memory, GatedBody body) {
  GatePage page{};
  memcpy(page.code, GATE_CODE, sizeof GATE_CODE);
  page.body = body;
  memcpy(page.frame, FRAME, sizeof FRAME);
  constexpr DWORD CODE_AT = offsetof(GateMemory, code);
  page.entry.BeginAddress = CODE_AT;
  page.entry.EndAddress = CODE_AT + sizeof GATE_CODE;
  page.entry.UnwindData = CODE_AT + offsetof(GatePage, frame);
  memcpy(memory->code, &page, sizeof page);
}

bool DescribeGateFrame(GateMemory* memory) {
  auto* page = reinterpret_cast<GatePage*>(memory->code);
  return RtlAddFunctionTable(&page->entry, 1, reinterpret_cast<std::uintptr_t>(memory)) != FALSE;
}

}  // namespace zvqrn::platform
