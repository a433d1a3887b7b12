#include "platform/thread.h"

#include <process.h>

#include <atomic>
#include <cstdlib>

#include "platform/windows/thread_gate.h"
#include "platform/windows/windows_headers.h"

namespace zvqrn::platform {
namespace {

// One thread that was started and has not ended; it frees its record itself.
struct ThreadRecord {
  DWORD id;  // of the thread that runs the procedure; 0 until one does
  ThreadProcedure procedure;
  void* argument;
  ThreadRecord* next;
};

std::atomic_flag recordsBusy = ATOMIC_FLAG_INIT;
ThreadRecord* records = nullptr;
bool retired = false;

constexpr unsigned LIBRARY_STACK_BYTES = 256U * 1024U;

// A lock that needs no making and no closing; held for a few instructions, and for the start of a
// thread.
struct RecordsGuard {
  RecordsGuard() {
    while (recordsBusy.test_and_set(std::memory_order_acquire)) {
      SwitchToThread();
    }
  }
  ~RecordsGuard() { recordsBusy.clear(std::memory_order_release); }
  RecordsGuard(const RecordsGuard&) = delete;
  RecordsGuard& operator=(const RecordsGuard&) = delete;
};

void Unlink(const ThreadRecord* record) {
  ThreadRecord** slot = &records;
  while (*slot != record) {
    slot = &(*slot)->next;
  }
  *slot = record->next;
}

// Takes a record that nobody has taken to run its procedure.
bool Take(ThreadRecord* record) {
  const RecordsGuard guard;
  if (record->id != 0) {
    return false;
  }
  record->id = ::GetCurrentThreadId();
  return true;
}

// 32-bit Windows aligns a new thread's stack to 4 bytes only; in 64 bits the attribute does
// nothing.
__attribute__((force_align_arg_pointer)) void RunThread(void* argument) {
  auto* record = static_cast<ThreadRecord*>(argument);
  if (!Take(record)) {
    return;
  }
  record->procedure(record->argument);
  {
    const RecordsGuard guard;
    Unlink(record);
  }
  std::free(record);
}

// A record whose thread has not come to its first instruction, taken by the caller; or null.
ThreadRecord* TakeUnstarted() {
  const RecordsGuard guard;
  ThreadRecord* record = records;
  while (record != nullptr && record->id != 0) {
    record = record->next;
  }
  if (record != nullptr) {
    record->id = ::GetCurrentThreadId();
  }
  return record;
}

bool AnyRecord() {
  const RecordsGuard guard;
  return records != nullptr;
}

}  // namespace

void PrepareThreads() {}

std::uintptr_t StartThread(ThreadProcedure procedure, void* argument, StackKind stack) {
  auto* record = static_cast<ThreadRecord*>(std::calloc(1, sizeof(ThreadRecord)));
  if (record == nullptr) {
    return 0;
  }
  record->procedure = procedure;
  record->argument = argument;

  const bool small = stack == STACK_FOR_LIBRARY;
  unsigned id = 0;
  std::uintptr_t handle = 0;
  {
    const RecordsGuard guard;
    const ThreadEntry entry = retired ? nullptr : EntryThroughGate(&RunThread);
    if (entry != nullptr) {
      handle = _beginthreadex(nullptr, small ? LIBRARY_STACK_BYTES : 0, entry, record,
                              small ? STACK_SIZE_PARAM_IS_A_RESERVATION : 0, &id);
    }
    if (handle != 0) {
      record->next = records;
      records = record;
    }
  }
  if (handle == 0) {
    std::free(record);
    return 0;
  }
  CloseHandle(reinterpret_cast<HANDLE>(handle));
  return id;
}

bool OnLibraryThread() {
  const RecordsGuard guard;
  const DWORD self = ::GetCurrentThreadId();
  const ThreadRecord* record = records;
  while (record != nullptr && record->id != self) {
    record = record->next;
  }
  return record != nullptr;
}

void WaitForThreads() {
  while (AnyRecord() || ThreadsInside() != 0) {
    Sleep(1);
  }
}

// A thread that has not come to its first instruction waits for the loader lock, and will find the
// gate closed.  Others may wait for what it was to do, so that is done here in its place.
void RetireThreads() {
  {
    const RecordsGuard guard;
    retired = true;
  }
  CloseGate();
  while (const ThreadRecord* record = TakeUnstarted()) {
    record->procedure(record->argument);
  }
  while (ThreadsInside() != 0) {
    Sleep(1);
  }
  // What is left was taken above: the others have freed their own.
  while (records != nullptr) {
    ThreadRecord* next = records->next;
    std::free(records);
    records = next;
  }
}

std::uintptr_t CurrentThreadId() {
  return ::GetCurrentThreadId();
}

void SleepMilliseconds(std::int32_t milliseconds) {
  Sleep(static_cast<DWORD>(milliseconds));
}

void YieldToOthers() {
  SwitchToThread();
}

}  // namespace zvqrn::platform
