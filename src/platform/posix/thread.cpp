#include "platform/thread.h"

#include <pthread.h>
#include <sched.h>

#include <cstdlib>
#include <ctime>

namespace zvqrn::platform {
namespace {

// One thread that was started and has not been joined yet; it is in one of the two lists below.
struct ThreadRecord {
  pthread_t thread;
  ThreadProcedure procedure;
  void* argument;
  bool joined;  // somebody waits for its end and will free this record
  ThreadRecord* next;
  ThreadRecord* previous;  // among the running
};

pthread_mutex_t recordsMutex = PTHREAD_MUTEX_INITIALIZER;
ThreadRecord* running = nullptr;   // their procedures have not returned
ThreadRecord* finished = nullptr;  // they have
bool retired = false;

// The smallest stack that leaves room for the sanitisers' larger frames.
constexpr std::size_t LIBRARY_STACK_BYTES = 256UL * 1024;

// Both with recordsMutex held.
void AddRunning(ThreadRecord* record) {
  record->next = running;
  if (running != nullptr) {
    running->previous = record;
  }
  running = record;
}

void RemoveRunning(const ThreadRecord* record) {
  (record->previous != nullptr ? record->previous->next : running) = record->next;
  if (record->next != nullptr) {
    record->next->previous = record->previous;
  }
}

// Joins the threads that have finished.
void JoinFinished() {
  pthread_mutex_lock(&recordsMutex);
  while (ThreadRecord* record = finished) {
    finished = record->next;
    pthread_mutex_unlock(&recordsMutex);
    pthread_join(record->thread, nullptr);
    std::free(record);
    pthread_mutex_lock(&recordsMutex);
  }
  pthread_mutex_unlock(&recordsMutex);
}

// A running thread that nobody waits for, claimed by the caller.  It stays in its list, where
// OnLibraryThread finds it, until it has ended.  recordsMutex is held.
ThreadRecord* ClaimRunning() {
  ThreadRecord* record = running;
  while (record != nullptr && record->joined) {
    record = record->next;
  }
  if (record != nullptr) {
    record->joined = true;
  }
  return record;
}

void JoinAllThreads() {
  pthread_mutex_lock(&recordsMutex);
  while (ThreadRecord* record = ClaimRunning()) {
    pthread_mutex_unlock(&recordsMutex);
    pthread_join(record->thread, nullptr);
    pthread_mutex_lock(&recordsMutex);
    RemoveRunning(record);
    std::free(record);
  }
  pthread_mutex_unlock(&recordsMutex);
  JoinFinished();
}

void* RunThread(void* argument) {
  auto* record = static_cast<ThreadRecord*>(argument);
  record->procedure(record->argument);
  // Puts away those that have finished before, so that a flood of threads leaves no stacks behind.
  // Not after the lines below: two threads would wait for each other.
  JoinFinished();
  pthread_mutex_lock(&recordsMutex);
  if (!record->joined) {
    RemoveRunning(record);
    record->next = finished;
    finished = record;
  }
  pthread_mutex_unlock(&recordsMutex);
  return nullptr;
}

}  // namespace

std::uintptr_t StartThread(ThreadProcedure procedure, void* argument, StackKind stack) {
  JoinFinished();
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
    AddRunning(record);
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
  pthread_mutex_lock(&recordsMutex);
  const ThreadRecord* record = running;
  while (record != nullptr && pthread_equal(record->thread, self) == 0) {
    record = record->next;
  }
  pthread_mutex_unlock(&recordsMutex);
  return record != nullptr;
}

void WaitForThreads() {
  JoinAllThreads();
}

void RetireThreads() {
  pthread_mutex_lock(&recordsMutex);
  retired = true;
  pthread_mutex_unlock(&recordsMutex);
  JoinAllThreads();
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
