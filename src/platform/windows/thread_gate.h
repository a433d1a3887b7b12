// The gate through which every thread of the library enters and leaves its code: a few
// instructions in memory of their own, which outlives the library.
//
// Why: a thread needs the loader lock to begin and to end, and an unload holds that lock.  The
// unload can therefore neither wait for a thread's handle nor be sure that a thread which was
// started ever got to its first instruction.  A thread that begins late finds the gate closed and
// goes home without touching the library; a thread that ends counts itself out after its last
// instruction in the library.
#pragma once

#include <cstdint>

namespace zvqrn::platform {

// The body that a thread runs inside the gate.
using GatedBody = void (*)(void* argument);

// A procedure for _beginthreadex that runs `body` behind the gate.  Makes the gate at its first
// call, always for the same body.  Where the process forbids memory that can be executed, the
// library is kept loaded for good instead, so that no thread can outlive it.  Null when neither
// can be had.  Callers come one at a time.
using ThreadEntry = unsigned(__stdcall*)(void* argument);
ThreadEntry EntryThroughGate(GatedBody body);

// How many threads are inside.
std::int32_t ThreadsInside();

// Lets nobody in any more.
void CloseGate();

}  // namespace zvqrn::platform
