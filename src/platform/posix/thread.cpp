#include "platform/thread.h"

#include <pthread.h>
#include <sched.h>

#include <cstdlib>
#include <ctime>

namespace zvqrn::platform {
namespace {

// One thread that was started and has not been joined yet.
struct ThreadRecord {
  pthread_t thread;
  ThreadProcedure procedure;
  void* argument;
  bool finished;  // its procedure has returned
  bool joining;   // somebody waits for its end and will free this record
  ThreadRecord* next;
};

pthread_mutex_t recordsMutex = PTHREAD_MUTEX_INITIALIZER;
ThreadRecord* records = nullptr;
bool retired = false;

// The smallest stack that leaves room for the sanitisers' larger frames.
constexpr std::size_t LIBRARY_STACK_BYTES = 256UL * 1024;

// Claims a thread that has finished (or, with `any`, one that may still run) for joining.  The
// record stays in the list until its thread has ended.  recordsMutex is held.
ThreadRecord* ClaimRecord(bool any) {
  ThreadRecord* record = records;
  while (record != nullptr && (record->joining || !(any || record->finished))) {
    record = record->next;
  }
  if (record != nullptr) {
    record->joining = true;
  }
  return record;
}

// recordsMutex is held.
void Unlink(const ThreadRecord* record) {
  ThreadRecord** slot = &records;
  while (*slot != record) {
    slot = &(*slot)->next;
  }
  *slot = record->next;
}

// Joins threads until none is left that has finished (or, with `any`, none at all).
void JoinThreads(bool any) {
  pthread_mutex_lock(&recordsMutex);
  for (ThreadRecord* record = ClaimRecord(any); record != nullptr; record = ClaimRecord(any)) {
    pthread_mutex_unlock(&recordsMutex);
    pthread_join(record->thread, nullptr);
    pthread_mutex_lock(&recordsMutex);
    Unlink(record);
    std::free(record);
  }
  pthread_mutex_unlock(&recordsMutex);
}

void* RunThread(void* argument) {
  auto* record = static_cast<ThreadRecord*>(argument);
  record->procedure(record->argument);
  // Puts away those that have finished before, so that a flood of threads leaves no stacks behind.
  // Not after the line below: two threads would wait for each other.
  JoinThreads(false);
  pthread_mutex_lock(&recordsMutex);
  record->finished = true;
  pthread_mutex_unlock(&recordsMutex);
  return nullptr;
}

}  // namespace

std::uintptr_t StartThread(ThreadProcedure procedure, void* argument, StackKind stack) {
  JoinThreads(false);
  auto* record = static_cast<ThreadRecord*>(std::calloc(1, sizeof(ThreadRecord)));
  if (record == nullptr) {
    return 0;
  }
  record->procedure = procedure;
  record->argument = argument;

  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  if (stack == STACK_FOR_LIBRARY) {
    pthread_attr_setstacksize(&attributes, LIBRARY_STACK_BYTES);
  }
  // The new thread meets the mutex at its end, so its record is complete by then.
  pthread_mutex_lock(&recordsMutex);
  const bool started =
      !retired && pthread_create(&record->thread, &attributes, RunThread, record) == 0;
  std::uintptr_t id = 0;
  if (started) {
    id = static_cast<std::uintptr_t>(record->thread);
    record->next = records;
    records = record;
  }
  pthread_mutex_unlock(&recordsMutex);
  pthread_attr_destroy(&attributes);
  if (!started) {
    std::free(record);
  }
  return id;
}

bool OnLibraryThread() {
  const pthread_t self = pthread_self();
  bool found = false;
  pthread_mutex_lock(&recordsMutex);
  for (const ThreadRecord* record = records; record != nullptr && !found; record = record->next) {
    found = !record->finished && pthread_equal(record->thread, self) != 0;
  }
  pthread_mutex_unlock(&recordsMutex);
  return found;
}

void WaitForThreads() {
  JoinThreads(true);
}

void RetireThreads() {
  pthread_mutex_lock(&recordsMutex);
  retired = true;
  pthread_mutex_unlock(&recordsMutex);
  JoinThreads(true);
}

std::uintptr_t CurrentThreadId() {
  return static_cast<std::uintptr_t>(pthread_self());
}

void SleepMilliseconds(std::int32_t milliseconds) {
  timespec rest{milliseconds / 1000, (milliseconds % 1000) * 1000000L};
  while (nanosleep(&rest, &rest) != 0) {
  }
}

void YieldToOthers() {
  sched_yield();
}

}  // namespace zvqrn::platform
