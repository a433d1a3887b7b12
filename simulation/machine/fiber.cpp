#include "machine/fiber.h"

#include <sys/mman.h>
#if !defined(__x86_64__)
#include <ucontext.h>
#endif

#include <cstdint>
#include <cstdlib>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#endif

namespace zvqrn::simulation {

struct Fiber {
  void (*run)(void*);
  void* argument;
  char* stack;  // null for the main fiber, whose bounds are learned at the first switch
  std::size_t stackBytes;
#if defined(__x86_64__)
  void* top;  // its stack pointer while it does not run
#else
  ucontext_t context;
#endif
#if defined(__SANITIZE_ADDRESS__)
  void* fakeStack;
  const void* bottom;
  std::size_t size;
#endif
};

namespace {

constexpr std::size_t GUARD_BYTES = 4096;

Fiber mainFiber{};
Fiber* current = &mainFiber;
Fiber* ended = nullptr;     // to be put away by whoever runs next
std::vector<Fiber*> spare;  // fibers whose stacks wait to be used again

// What a fiber does first after each switch to it.
void Arrive() {
#if defined(__SANITIZE_ADDRESS__)
  const void* bottom = nullptr;
  std::size_t size = 0;
  __sanitizer_finish_switch_fiber(current->fakeStack, &bottom, &size);
  if (mainFiber.bottom == nullptr) {
    mainFiber.bottom = bottom;
    mainFiber.size = size;
  }
#endif
  if (ended != nullptr) {
#if defined(__SANITIZE_ADDRESS__)
    __asan_unpoison_memory_region(ended->stack, ended->stackBytes);
#endif
    spare.push_back(ended);
    ended = nullptr;
  }
}

void Begin() {
  Arrive();
  current->run(current->argument);
  std::abort();
}

#if defined(__x86_64__)

// Saves what a called function must keep, and goes on where the other fiber did the same.
extern "C" void SwitchStacks(void** from, void* to);
asm(R"(
  .text
  .type SwitchStacks, @function
SwitchStacks:
  pushq %rbp
  pushq %rbx
  pushq %r12
  pushq %r13
  pushq %r14
  pushq %r15
  movq %rsp, (%rdi)
  movq %rsi, %rsp
  popq %r15
  popq %r14
  popq %r13
  popq %r12
  popq %rbx
  popq %rbp
  ret
  .size SwitchStacks, .-SwitchStacks
)");

void Prepare(Fiber* fiber) {
  auto** top = reinterpret_cast<void**>(fiber->stack + fiber->stackBytes) - 2;
  top[0] = reinterpret_cast<void*>(&Begin);
  top[1] = nullptr;
  fiber->top = top - 6;
  for (int i = 1; i <= 6; i++) {
    top[-i] = nullptr;
  }
}

void Switch(Fiber* from, Fiber* to) {
  SwitchStacks(&from->top, to->top);
}

#else

void Prepare(Fiber* fiber) {
  getcontext(&fiber->context);
  fiber->context.uc_stack.ss_sp = fiber->stack;
  fiber->context.uc_stack.ss_size = fiber->stackBytes;
  makecontext(&fiber->context, &Begin, 0);
}

void Switch(Fiber* from, Fiber* to) {
  swapcontext(&from->context, &to->context);
}

#endif

}  // namespace

Fiber* MakeFiber(void (*run)(void*), void* argument, std::size_t stackBytes) {
  Fiber* fiber = nullptr;
  for (std::size_t i = spare.size(); i > 0 && fiber == nullptr; i--) {
    if (spare[i - 1]->stackBytes == stackBytes) {
      fiber = spare[i - 1];
      spare.erase(spare.begin() + static_cast<std::ptrdiff_t>(i - 1));
    }
  }
  if (fiber == nullptr) {
    fiber = new Fiber{};
    void* memory = mmap(nullptr, GUARD_BYTES + stackBytes, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED || mprotect(memory, GUARD_BYTES, PROT_NONE) != 0) {
      std::abort();
    }
    fiber->stack = static_cast<char*>(memory) + GUARD_BYTES;
    fiber->stackBytes = stackBytes;
  }
  fiber->run = run;
  fiber->argument = argument;
#if defined(__SANITIZE_ADDRESS__)
  fiber->fakeStack = nullptr;
  fiber->bottom = fiber->stack;
  fiber->size = stackBytes;
#endif
  Prepare(fiber);
  return fiber;
}

Fiber* MainFiber() {
  return &mainFiber;
}

void SwitchTo(Fiber* next, bool ends) {
  Fiber* from = current;
  if (from == next) {
    return;
  }
  if (ends) {
    ended = from;
  }
  current = next;
#if defined(__SANITIZE_ADDRESS__)
  __sanitizer_start_switch_fiber(ends ? nullptr : &from->fakeStack, next->bottom, next->size);
#endif
  Switch(from, next);
  Arrive();
}

}  // namespace zvqrn::simulation
