#include "platform/encoding.h"

namespace zvqrn::platform {

// The ANSI code page here is Windows-1252, in which every character is one byte.
bool IsLeadByteAt(const char* /*text*/, std::int32_t /*index*/) {
  return false;
}

}  // namespace zvqrn::platform
