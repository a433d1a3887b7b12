#include "platform/clock.h"

#include <sys/timeb.h>

#include <ctime>

#include "platform/windows/windows_headers.h"

namespace zvqrn::platform {

std::int64_t WholeSeconds() {
  return time(nullptr);
}

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
  _timeb now{};
  _ftime(&now);
  LocalTimeStamp stamp{};
  // The run-time keeps the result of localtime once for each thread.
  const tm* local = localtime(&now.time);
  if (local != nullptr) {
    strftime(stamp.text, sizeof stamp.text, "%Y%m%d%H%M%S", local);
  }
  stamp.milliseconds = now.millitm;
  return stamp;
}

}  // namespace zvqrn::platform
