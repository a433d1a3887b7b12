// The ANSI code page of the process.  Any thread.
#pragma once

#include <cstdint>

namespace zvqrn::platform {

// True when the byte at `index` is the lead byte of a double-byte character, judged from the start
// of `text`, of which the bytes up to `index` are looked at.
bool IsLeadByteAt(const char* text, std::int32_t index);

}  // namespace zvqrn::platform
