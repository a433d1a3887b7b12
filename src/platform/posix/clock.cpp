#include "platform/clock.h"

#include <ctime>

namespace zvqrn::platform {

std::int64_t MonotonicMilliseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

LocalTimeStamp ReadLocalTime() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  LocalTimeStamp stamp{};
  strftime(stamp.text, sizeof stamp.text, "%Y%m%d%H%M%S", &local);
  stamp.milliseconds = static_cast<std::uint32_t>(now.tv_nsec / 1000000);
  return stamp;
}

}  // namespace zvqrn::platform
