#include "platform/encoding.h"

#include <cstdlib>
#include <memory>

#include "platform/windows/windows_headers.h"

namespace zvqrn::platform {

bool IsLeadByte(char byte) {
  return IsDBCSLeadByte(static_cast<BYTE>(byte)) != FALSE;
}

bool IsUtf8CodePage() {
  return GetACP() == CP_UTF8;
}

std::int32_t AnsiToUtf8Bytes(const char* text, char* utf8, std::int32_t size) {
  const int characters = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
  if (characters < 1) {
    return 0;
  }
  const std::unique_ptr<WCHAR, void (*)(void*)> wide(
      static_cast<WCHAR*>(std::calloc(static_cast<std::size_t>(characters), sizeof(WCHAR))),
      std::free);
  if (!wide || MultiByteToWideChar(CP_ACP, 0, text, -1, wide.get(), characters) < 1) {
    return 0;
  }
  const int bytes = WideCharToMultiByte(CP_UTF8, 0, wide.get(), -1, nullptr, 0, nullptr, nullptr);
  if (bytes > 0 && bytes <= size) {
    return WideCharToMultiByte(CP_UTF8, 0, wide.get(), -1, utf8, size, nullptr, nullptr);
  }
  return bytes;
}

}  // namespace zvqrn::platform
