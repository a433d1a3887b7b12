#include "platform/thread.h"

#include <link.h>
#include <pthread.h>
#include <sched.h>

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <initializer_list>

namespace zvqrn::platform {
namespace {

// One thread that was started and has not been joined yet; it is in one of the two lists below.
struct ThreadRecord {
  pthread_t thread;
  ThreadProcedure procedure;
  void* argument;
  bool callsHost;  // runs with the host's signals
  bool joined;     // somebody waits for its end, and the thread frees this record itself
  ThreadRecord* next;
  ThreadRecord* previous;  // among the running
};

pthread_mutex_t recordsMutex = PTHREAD_MUTEX_INITIALIZER;
ThreadRecord* running = nullptr;   // their procedures have not returned
ThreadRecord* finished = nullptr;  // they have
bool retired = false;

// The smallest stack that leaves room for the sanitisers' larger frames.
constexpr std::size_t LIBRARY_STACK_BYTES = 256UL * 1024;

// What PrepareThreads has found: the room that thread-local storage takes of every stack, and the
// signals that the host's own thread blocks.
std::size_t threadLocalBytes = 0;
sigset_t hostSignals;

int AddThreadLocalBytes(dl_phdr_info* module, std::size_t /*size*/, void* total) {
  for (int i = 0; i < module->dlpi_phnum; i++) {
    const auto& segment = module->dlpi_phdr[i];
    if (segment.p_type == PT_TLS) {
      *static_cast<std::size_t*>(total) += segment.p_memsz + segment.p_align;
    }
  }
  return 0;
}

// All signals but those that a thread's own fault raises.
sigset_t OthersSignals() {
  sigset_t signals;
  sigfillset(&signals);
  for (const int fault : {SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP}) {
    sigdelset(&signals, fault);
  }
  return signals;
}

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

// Claims a running thread that nobody waits for; false when there is none.  Its record stays in the
// list, where OnLibraryThread finds it, until its procedure has returned.  recordsMutex is held.
bool ClaimRunning(pthread_t* thread) {
  ThreadRecord* record = running;
  while (record != nullptr && record->joined) {
    record = record->next;
  }
  if (record != nullptr) {
    record->joined = true;
    *thread = record->thread;
  }
  return record != nullptr;
}

void JoinAllThreads() {
  pthread_t thread{};
  pthread_mutex_lock(&recordsMutex);
  while (ClaimRunning(&thread)) {
    pthread_mutex_unlock(&recordsMutex);
    pthread_join(thread, nullptr);
    pthread_mutex_lock(&recordsMutex);
  }
  pthread_mutex_unlock(&recordsMutex);
  JoinFinished();
}

void* RunThread(void* argument) {
  auto* record = static_cast<ThreadRecord*>(argument);
  if (record->callsHost) {
    pthread_sigmask(SIG_SETMASK, &hostSignals, nullptr);
  }
  record->procedure(record->argument);
  // Puts away those that have finished before, so that a flood of threads leaves no stacks behind.
  // Not after the lines below: two threads would wait for each other.
  JoinFinished();
  pthread_mutex_lock(&recordsMutex);
  // Done here, also for who waits for this thread: once it has been joined, a thread of the host's
  // may get its id.
  RemoveRunning(record);
  if (record->joined) {
    std::free(record);
  } else {
    record->next = finished;
    finished = record;
  }
  pthread_mutex_unlock(&recordsMutex);
  return nullptr;
}

// Creates the thread of a record with the signals of others blocked, so that no handler of the
// host's ever runs on a small stack; 0 or an error.
int CreateThread(ThreadRecord* record) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  if (!record->callsHost) {
    pthread_attr_setstacksize(&attributes, LIBRARY_STACK_BYTES + threadLocalBytes);
  }
  const sigset_t blocked = OthersSignals();
  sigset_t before;
  pthread_sigmask(SIG_BLOCK, &blocked, &before);
  const int error = pthread_create(&record->thread, &attributes, RunThread, record);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  pthread_attr_destroy(&attributes);
  return error;
}

}  // namespace

void PrepareThreads() {
  threadLocalBytes = 0;
  dl_iterate_phdr(&AddThreadLocalBytes, &threadLocalBytes);
  pthread_sigmask(SIG_SETMASK, nullptr, &hostSignals);
}

std::uintptr_t StartThread(ThreadProcedure procedure, void* argument, StackKind stack) {
  JoinFinished();
  auto* record = static_cast<ThreadRecord*>(std::calloc(1, sizeof(ThreadRecord)));
  if (record == nullptr) {
    return 0;
  }
  record->procedure = procedure;
  record->argument = argument;
  record->callsHost = stack == STACK_FOR_HOST_CALLBACKS;

  // The new thread meets the mutex at its end, so its record is complete by then.
  pthread_mutex_lock(&recordsMutex);
  const bool started = !retired && CreateThread(record) == 0;
  std::uintptr_t id = 0;
  if (started) {
    id = static_cast<std::uintptr_t>(record->thread);
    AddRunning(record);
  }
  pthread_mutex_unlock(&recordsMutex);
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
