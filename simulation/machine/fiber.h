// Fibers: threads of control that switch only where they say so, all on one thread of the system.
#pragma once

#include <cstddef>

namespace zvqrn::simulation {

struct Fiber;

// Makes a fiber that runs `run(argument)` when it is first switched to; `run` must not return but
// switch away for good with `SwitchTo(next, true)`.  Stacks are pooled and have a guard page.
Fiber* MakeFiber(void (*run)(void*), void* argument, std::size_t stackBytes);

// The fiber of the thread that runs the program.
Fiber* MainFiber();

// Goes on with another fiber.  With `ends` the current one is never switched to again, and its
// stack goes back to the pool.
void SwitchTo(Fiber* next, bool ends = false);

}  // namespace zvqrn::simulation
