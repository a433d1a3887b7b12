#include "platform/sync.h"

#include <pthread.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

namespace zvqrn::platform {

struct Semaphore {
  pthread_mutex_t mutex;
  pthread_cond_t changed;
  std::int32_t count;
  std::int32_t maximum;
};

// All events share one mutex and one condition, so that a thread can wait for either of two.
struct Event {
  bool set;
};

namespace {

pthread_mutex_t eventMutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t eventChanged = PTHREAD_COND_INITIALIZER;

timespec DeadlineAfter(std::int32_t milliseconds) {
  timespec deadline{};
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  deadline.tv_sec += milliseconds / 1000;
  deadline.tv_nsec += (milliseconds % 1000) * 1000000L;
  if (deadline.tv_nsec >= 1000000000L) {
    deadline.tv_sec += 1;
    deadline.tv_nsec -= 1000000000L;
  }
  return deadline;
}

// One wait on `condition`; false when the deadline has passed.
bool WaitOnce(pthread_cond_t* condition, pthread_mutex_t* mutex, std::int32_t milliseconds,
              const timespec& deadline) {
  if (milliseconds == WAIT_WITHOUT_END) {
    pthread_cond_wait(condition, mutex);
    return true;
  }
  return pthread_cond_clockwait(condition, mutex, CLOCK_MONOTONIC, &deadline) != ETIMEDOUT;
}

}  // namespace

Semaphore* MakeSemaphore(std::int32_t initial, std::int32_t maximum) {
  if (initial < 0 || maximum < 1 || initial > maximum) {
    return nullptr;
  }
  auto* semaphore = static_cast<Semaphore*>(std::calloc(1, sizeof(Semaphore)));
  if (semaphore == nullptr) {
    return nullptr;
  }
  pthread_mutex_init(&semaphore->mutex, nullptr);
  pthread_cond_init(&semaphore->changed, nullptr);
  semaphore->count = initial;
  semaphore->maximum = maximum;
  return semaphore;
}

void CloseSemaphore(Semaphore* semaphore) {
  pthread_cond_destroy(&semaphore->changed);
  pthread_mutex_destroy(&semaphore->mutex);
  std::free(semaphore);
}

SyncResult WaitSemaphore(Semaphore* semaphore, std::int32_t milliseconds) {
  const timespec deadline = milliseconds > 0 ? DeadlineAfter(milliseconds) : timespec{};
  pthread_mutex_lock(&semaphore->mutex);
  bool timeLeft = milliseconds != 0;
  while (semaphore->count == 0 && timeLeft) {
    timeLeft = WaitOnce(&semaphore->changed, &semaphore->mutex, milliseconds, deadline);
  }
  const bool obtained = semaphore->count > 0;
  if (obtained) {
    semaphore->count--;
  }
  pthread_mutex_unlock(&semaphore->mutex);
  return obtained ? SYNC_SIGNALLED : SYNC_TIMED_OUT;
}

bool SignalSemaphore(Semaphore* semaphore) {
  pthread_mutex_lock(&semaphore->mutex);
  const bool room = semaphore->count < semaphore->maximum;
  if (room) {
    semaphore->count++;
    pthread_cond_signal(&semaphore->changed);
  }
  pthread_mutex_unlock(&semaphore->mutex);
  return room;
}

Event* MakeEvent() {
  return static_cast<Event*>(std::calloc(1, sizeof(Event)));
}

void CloseEvent(Event* event) {
  std::free(event);
}

void SignalEvent(Event* event) {
  pthread_mutex_lock(&eventMutex);
  event->set = true;
  pthread_cond_broadcast(&eventChanged);
  pthread_mutex_unlock(&eventMutex);
}

void ClearEvent(Event* event) {
  pthread_mutex_lock(&eventMutex);
  event->set = false;
  pthread_mutex_unlock(&eventMutex);
}

SyncResult WaitEvent(Event* event, std::int32_t milliseconds) {
  const timespec deadline = milliseconds > 0 ? DeadlineAfter(milliseconds) : timespec{};
  pthread_mutex_lock(&eventMutex);
  bool timeLeft = milliseconds != 0;
  while (!event->set && timeLeft) {
    timeLeft = WaitOnce(&eventChanged, &eventMutex, milliseconds, deadline);
  }
  const bool set = event->set;
  pthread_mutex_unlock(&eventMutex);
  return set ? SYNC_SIGNALLED : SYNC_TIMED_OUT;
}

EitherResult WaitEitherEvent(Event* first, Event* second) {
  pthread_mutex_lock(&eventMutex);
  while (!first->set && !second->set) {
    pthread_cond_wait(&eventChanged, &eventMutex);
  }
  const EitherResult result = first->set ? EITHER_FIRST : EITHER_SECOND;
  pthread_mutex_unlock(&eventMutex);
  return result;
}

}  // namespace zvqrn::platform
