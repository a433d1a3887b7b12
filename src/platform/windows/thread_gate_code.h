// The gate's instructions, which differ from machine to machine: thread_gate_x86.cpp and
// thread_gate_x64.cpp each hold those of one.  What they do is the same:
//
//   take `inside` up by one, unless it is negative: then give 0 at once;
//   call the body with the thread's argument;
//   take `inside` down by one; give 0.
//
// From the last step on nothing may touch the library, whose memory may be gone.
#pragma once

#include "platform/windows/thread_gate.h"
#include "platform/windows/windows_headers.h"

namespace zvqrn::platform {

constexpr SIZE_T GATE_PAGE_BYTES = 4096;

// The gate's memory: a page for the counter, and one for the instructions, which can be written
// only as long as they cannot be executed.
struct GateMemory {
  union {
    volatile LONG inside;
    unsigned char data[GATE_PAGE_BYTES];
  };
  unsigned char code[GATE_PAGE_BYTES];
};

// Writes the instructions, which begin with the first byte of `code`, for calling `body`.
void WriteGateCode(GateMemory* memory, GatedBody body);

// Tells the system how to find a thread's caller from inside the gate, where it has to be told:
// whoever looks through a thread's stack (a debugger, the system with an exception of the host's
// callback in its hands) comes through here.  Once the instructions can be executed; it holds for
// as long as the process lives, as the gate does.  False when the system refuses.
bool DescribeGateFrame(GateMemory* memory);

}  // namespace zvqrn::platform
