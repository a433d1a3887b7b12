#include "support/failing_calls.h"

#include <ifaddrs.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/address_change.h"
#include "platform/sync.h"
#include "platform/thread.h"

namespace zvqrn::test {

thread_local bool isSpared = false;

namespace {

// Written while nothing is armed.
const char* failingFunction = "";
int failingError = 0;
std::int32_t failingNumber = 0;
std::atomic<bool> armed{false};
std::atomic<std::int32_t> calls{0};
std::atomic<std::int32_t> failures{0};

// Waits that run out and pauses end after this long, and the library's clock runs that much faster.
constexpr std::int32_t SHORT_MS = 20;
constexpr std::int32_t FASTER = 10;

bool Watches(const char* function) {
  return armed.load() && !isSpared && std::strcmp(failingFunction, function) == 0;
}

// Counts a call; true, and errno is set, when it is to fail.
bool Fails(const char* function) {
  if (!Watches(function) || (failingNumber != EVERY_CALL && ++calls != failingNumber)) {
    return false;
  }
  failures++;
  errno = failingError;
  return true;
}

bool AllFail(const char* function) {
  return Watches(function) && failingNumber == EVERY_CALL && Fails(function);
}

// The size that a transfer may have; 0 when it fails.
std::size_t Transfer(const char* function, std::size_t size) {
  return !Fails(function) ? size : failingError == ONE_BYTE_ONLY ? 1 : 0;
}

std::int32_t Shortened(std::int32_t milliseconds) {
  return isSpared ? milliseconds : std::min(milliseconds, SHORT_MS);
}

}  // namespace

void ArmFailure(const char* function, int error, std::int32_t number) {
  failingFunction = function;
  failingError = error;
  failingNumber = number;
  calls = 0;
  failures = 0;
  armed = true;
}

void PauseFailure() {
  armed = false;
}

void ResumeFailure() {
  armed = true;
}

std::int32_t FailedCalls() {
  return failures.load();
}

}  // namespace zvqrn::test

using namespace zvqrn::platform;
using namespace zvqrn::test;

// A function that gives `failed` when it fails; `label` is what tests call it.
#define REPLACED_AS(label, result, name, parameters, arguments, failed) \
  result __real_##name parameters;                                      \
  result __wrap_##name parameters;                                      \
  result __wrap_##name parameters {                                     \
    return Fails(label) ? (failed) : __real_##name arguments;           \
  }
#define REPLACED(result, name, parameters, arguments, failed) \
  REPLACED_AS(#name, result, name, parameters, arguments, failed)

// One that transfers `size` bytes.
#define TRANSFER(name, parameters, arguments)        \
  ssize_t __real_##name parameters;                  \
  ssize_t __wrap_##name parameters;                  \
  ssize_t __wrap_##name parameters {                 \
    size = Transfer(#name, size);                    \
    return size == 0 ? -1 : __real_##name arguments; \
  }

// A wait, which fails when it has found something: those that run out come too often to be counted.
#define WAIT(label, result, name, parameters, arguments, found, undo, failed) \
  result __real_##name parameters;                                            \
  result __wrap_##name parameters;                                            \
  result __wrap_##name parameters {                                           \
    if (AllFail(label)) {                                                     \
      return failed;                                                          \
    }                                                                         \
    const result outcome = __real_##name arguments;                           \
    if (!(outcome found) || !Fails(label)) {                                  \
      return outcome;                                                         \
    }                                                                         \
    undo;                                                                     \
    return failed;                                                            \
  }

extern "C" {

REPLACED(void*, calloc, (std::size_t n, std::size_t size), (n, size), nullptr)
REPLACED(int, pthread_create,
         (pthread_t * thread, const pthread_attr_t* with, void* (*run)(void*), void* argument),
         (thread, with, run, argument), errno)
REPLACED(int, socket, (int domain, int type, int protocol), (domain, type, protocol), -1)
REPLACED(int, bind, (int fd, const sockaddr* name, socklen_t size), (fd, name, size), -1)
REPLACED(int, listen, (int fd, int backlog), (fd, backlog), -1)
REPLACED(int, accept4, (int fd, sockaddr* name, socklen_t* size, int flags),
         (fd, name, size, flags), -1)
REPLACED(int, getsockname, (int fd, sockaddr* name, socklen_t* size), (fd, name, size), -1)
REPLACED(int, setsockopt, (int fd, int level, int name, const void* value, socklen_t size),
         (fd, level, name, value, size), -1)
REPLACED(int, gethostname, (char* name, std::size_t size), (name, size), -1)
REPLACED(int, getifaddrs, (ifaddrs * *list), (list), -1)
REPLACED(unsigned, if_nametoindex, (const char* name), (name), 0)
REPLACED(FILE*, fopen, (const char* path, const char* mode), (path, mode), nullptr)
REPLACED(int, pipe2, (int* ends, int flags), (ends, flags), -1)
REPLACED(int, eventfd, (unsigned value, int flags), (value, flags), -1)
REPLACED(void*, dlopen, (const char* path, int flags), (path, flags), nullptr)
TRANSFER(recv, (int fd, void* bytes, std::size_t size, int flags), (fd, bytes, size, flags))
TRANSFER(send, (int fd, const void* bytes, std::size_t size, int flags), (fd, bytes, size, flags))
TRANSFER(recvfrom,
         (int fd, void* bytes, std::size_t size, int flags, sockaddr* name, socklen_t* length),
         (fd, bytes, size, flags, name, length))
TRANSFER(sendto,
         (int fd, const void* bytes, std::size_t size, int flags, const sockaddr* name,
          socklen_t length),
         (fd, bytes, size, flags, name, length))
REPLACED_AS("MakeAddressNotifier", AddressNotifier*,
            _ZN5zvqrn8platform19MakeAddressNotifierEPNS0_5EventE, (Event * event), (event), nullptr)
REPLACED_AS("ArmAddressNotifier", bool,
            _ZN5zvqrn8platform18ArmAddressNotifierEPNS0_15AddressNotifierE,
            (AddressNotifier * notifier), (notifier), false)
WAIT("poll", int, poll, (pollfd * entries, nfds_t count, int limit),
     (entries, count, Shortened(limit)), > 0, errno = failingError, -1)
WAIT("WaitSemaphore", SyncResult, _ZN5zvqrn8platform13WaitSemaphoreEPNS0_9SemaphoreEi,
     (Semaphore * semaphore, std::int32_t limit), (semaphore, limit), == SYNC_SIGNALLED,
     SignalSemaphore(semaphore), SYNC_FAILED)
WAIT("WaitEvent", SyncResult, _ZN5zvqrn8platform9WaitEventEPNS0_5EventEi,
     (Event * event, std::int32_t limit), (event, Shortened(limit)), == SYNC_SIGNALLED, ,
     SYNC_FAILED)
WAIT("WaitEitherEvent", EitherResult, _ZN5zvqrn8platform15WaitEitherEventEPNS0_5EventES2_,
     (Event * first, Event* second), (first, second), != EITHER_FAILED, , EITHER_FAILED)

void __real__ZN5zvqrn8platform17SleepMillisecondsEi(std::int32_t milliseconds);
void __wrap__ZN5zvqrn8platform17SleepMillisecondsEi(std::int32_t milliseconds);
void __wrap__ZN5zvqrn8platform17SleepMillisecondsEi(std::int32_t milliseconds) {
  __real__ZN5zvqrn8platform17SleepMillisecondsEi(Shortened(milliseconds));
}

std::int64_t __real__ZN5zvqrn8platform21MonotonicMillisecondsEv();
std::int64_t __wrap__ZN5zvqrn8platform21MonotonicMillisecondsEv();
std::int64_t __wrap__ZN5zvqrn8platform21MonotonicMillisecondsEv() {
  return __real__ZN5zvqrn8platform21MonotonicMillisecondsEv() * (isSpared ? 1 : FASTER);
}

// The library that is unloaded here stays, and is loaded again.
void __wrap__ZN5zvqrn8platform13RetireThreadsEv();
void __wrap__ZN5zvqrn8platform13RetireThreadsEv() {
  WaitForThreads();
}

}  // extern "C"
