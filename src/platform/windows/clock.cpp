#include "platform/clock.h"

#include <sys/timeb.h>

#include <ctime>

#include "platform/windows/windows_headers.h"

namespace zvqrn::platform {

// GetTickCount wraps after 49 days; the performance counter does not.
std::int64_t MonotonicMilliseconds() {
  LARGE_INTEGER frequency{};
  LARGE_INTEGER count{};
  QueryPerformanceFrequency(&frequency);
  QueryPerformanceCounter(&count);
  const std::int64_t seconds = count.QuadPart / frequency.QuadPart;
  const std::int64_t rest = count.QuadPart % frequency.QuadPart;
  return seconds * 1000 + rest * 1000 / frequency.QuadPart;
}

LocalTimeStamp ReadLocalTime() {
  // A time_t of 32 bits, as 32-bit programs have it by default, ends in 2038.
  __timeb64 now{};
  _ftime64(&now);
  LocalTimeStamp stamp{};
  // The run-time keeps the result once for each thread.
  const tm* local = _localtime64(&now.time);
  if (local != nullptr) {
    strftime(stamp.text, sizeof stamp.text, "%Y%m%d%H%M%S", local);
  }
  stamp.milliseconds = now.millitm;
  return stamp;
}

}  // namespace zvqrn::platform
