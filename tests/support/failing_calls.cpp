#include "support/failing_calls.h"

#include <ifaddrs.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/thread.h"

using namespace zvqrn::platform;

namespace zvqrn::test {

FailingCall failing{};
std::atomic<bool> isArmed{false};
std::atomic<std::int32_t> callCount{0};
std::atomic<std::int32_t> failureCount{0};
thread_local bool isSpared = false;

// No wait of the library takes longer.
constexpr std::int32_t SHORT_MS = 20;

// Counts a call; true, and errno is set, when it is to fail.
static bool Fails(const char* function) {
  if (!isArmed || isSpared || std::strcmp(failing.function, function) != 0 ||
      ++callCount != failing.number) {
    return false;
  }
  failureCount++;
  errno = failing.error;
  return true;
}

static std::int32_t Shortened(std::int32_t milliseconds) {
  return isSpared ? milliseconds : std::min(milliseconds, SHORT_MS);
}

#define REPLACED(result, name, parameters) \
  result __real_##name parameters;         \
  result __wrap_##name parameters;         \
  result __wrap_##name parameters

#define CALL(result, name, parameters, arguments, failed)     \
  REPLACED(result, name, parameters) {                        \
    return Fails(#name) ? (failed) : __real_##name arguments; \
  }

#define TRANSFER(name, parameters, arguments)                  \
  REPLACED(ssize_t, name, parameters) {                        \
    const bool fails = Fails(#name);                           \
    size = fails && failing.error == ONE_BYTE_ONLY ? 1 : size; \
    return fails && size != 1 ? -1 : __real_##name arguments;  \
  }

extern "C" {

CALL(void*, calloc, (std::size_t n, std::size_t size), (n, size), nullptr)
CALL(int, pthread_create,
     (pthread_t * id, const pthread_attr_t* with, void* (*run)(void*), void* argument),
     (id, with, run, argument), errno)
CALL(int, socket, (int domain, int type, int protocol), (domain, type, protocol), -1)
CALL(int, bind, (int fd, const sockaddr* name, socklen_t size), (fd, name, size), -1)
CALL(int, listen, (int fd, int backlog), (fd, backlog), -1)
CALL(int, accept4, (int fd, sockaddr* name, socklen_t* size, int flags), (fd, name, size, flags),
     -1)
CALL(int, getsockname, (int fd, sockaddr* name, socklen_t* size), (fd, name, size), -1)
CALL(int, setsockopt, (int fd, int level, int name, const void* value, socklen_t size),
     (fd, level, name, value, size), -1)
CALL(int, gethostname, (char* name, std::size_t size), (name, size), -1)
CALL(int, getifaddrs, (ifaddrs * *list), (list), -1)
CALL(unsigned, if_nametoindex, (const char* name), (name), 0)
CALL(FILE*, fopen, (const char* path, const char* mode), (path, mode), nullptr)
CALL(int, pipe2, (int* ends, int flags), (ends, flags), -1)
CALL(int, eventfd, (unsigned value, int flags), (value, flags), -1)
CALL(void*, dlopen, (const char* path, int flags), (path, flags), nullptr)
TRANSFER(recv, (int fd, void* bytes, std::size_t size, int flags), (fd, bytes, size, flags))
TRANSFER(send, (int fd, const void* bytes, std::size_t size, int flags), (fd, bytes, size, flags))
TRANSFER(recvfrom,
         (int fd, void* bytes, std::size_t size, int flags, sockaddr* name, socklen_t* length),
         (fd, bytes, size, flags, name, length))
TRANSFER(sendto,
         (int fd, const void* bytes, std::size_t size, int flags, const sockaddr* name,
          socklen_t length),
         (fd, bytes, size, flags, name, length))
REPLACED(int, poll, (pollfd * entries, nfds_t count, int limit)) {
  return Fails("poll") ? -1 : __real_poll(entries, count, Shortened(limit));
}
REPLACED(void, _ZN5zvqrn8platform17SleepMillisecondsEi, (std::int32_t milliseconds)) {
  __real__ZN5zvqrn8platform17SleepMillisecondsEi(Shortened(milliseconds));
}
// The library that is unloaded here stays, and is loaded again.
REPLACED(void, _ZN5zvqrn8platform13RetireThreadsEv, ()) {
  WaitForThreads();
}

}  // extern "C"

}  // namespace zvqrn::test
