#include "platform/encoding.h"

#include "platform/windows/windows_headers.h"

namespace zvqrn::platform {

bool IsLeadByteAt(const char* text, std::int32_t index) {
  for (std::int32_t i = 0; i < index; i++) {
    if (IsDBCSLeadByte(static_cast<BYTE>(text[i])) != FALSE) {
      i++;
      if (i == index) {
        return false;
      }
    }
  }
  return IsDBCSLeadByte(static_cast<BYTE>(text[index])) != FALSE;
}

}  // namespace zvqrn::platform
