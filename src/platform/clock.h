// The clocks that the library reads.  Any thread.
#pragma once

#include <cstdint>

namespace zvqrn::platform {

// Milliseconds of a clock that never goes back; its start is arbitrary.
std::int64_t MonotonicMilliseconds();

// A moment in local time.
struct LocalTimeStamp {
  char text[15];               // "YYYYMMDDhhmmss" and a NUL
  std::uint32_t milliseconds;  // 0 to 999
};

LocalTimeStamp ReadLocalTime();

}  // namespace zvqrn::platform
