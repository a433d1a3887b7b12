#include "common/machine_text.h"

#include <cstdio>

#include "platform/encoding.h"

#if defined(_WIN32)
#include "platform/windows/windows_headers.h"
// After the header above.
#include <fcntl.h>
#include <io.h>
#include <shellapi.h>
#else
#include <langinfo.h>

#include <clocale>
#endif

namespace zvqrn::tools {

#if defined(_WIN32)

std::wstring WideText(const std::string& text) {
  const auto size = static_cast<int>(text.size());
  const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(length), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), length);
  return wide;
}

std::string NarrowText(const std::wstring& text) {
  const auto length = static_cast<int>(text.size());
  const int size =
      WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string narrow(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), length, narrow.data(), size, nullptr, nullptr);
  return narrow;
}

// The arguments that the C library has made are in the code page and have lost the other letters.
std::vector<std::string> ReadArguments(int /*argc*/, char** /*argv*/) {
  std::vector<std::string> arguments;
  int count = 0;
  wchar_t** words = CommandLineToArgvW(GetCommandLineW(), &count);
  for (int i = 1; words != nullptr && i < count; ++i) {
    arguments.push_back(NarrowText(words[i]));
  }
  LocalFree(words);
  return arguments;
}

std::filesystem::path PathOf(const std::string& text) {
  return WideText(text);
}

std::string TextOf(const std::filesystem::path& path) {
  return NarrowText(path.wstring());
}

bool ToLibraryText(const std::string& text, std::string* bytes) {
  if (GetACP() == CP_UTF8) {
    *bytes = text;
    return true;
  }
  const std::wstring wide = WideText(text);
  const auto length = static_cast<int>(wide.size());
  BOOL lost = FALSE;
  const int size = WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide.data(), length, nullptr,
                                       0, nullptr, &lost);
  bytes->assign(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide.data(), length, bytes->data(), size,
                      nullptr, nullptr);
  return lost == FALSE;
}

#else

// The library takes texts for what the process has chosen as its locale.  A user who has chosen
// none types UTF-8 all the same.
std::vector<std::string> ReadArguments(int argc, char** argv) {
  const std::string ascii = nl_langinfo(CODESET);
  std::setlocale(LC_CTYPE, "");
  if (nl_langinfo(CODESET) == ascii) {
    std::setlocale(LC_CTYPE, "C.UTF-8");
  }
  return {argv + 1, argv + argc};
}

std::filesystem::path PathOf(const std::string& text) {
  return text;
}

std::string TextOf(const std::filesystem::path& path) {
  return path.string();
}

bool ToLibraryText(const std::string& text, std::string* bytes) {
  *bytes = text;
  return true;
}

#endif

bool ReadStandardInput(std::string* bytes) {
#if defined(_WIN32)
  _setmode(_fileno(stdin), _O_BINARY);
#endif
  char block[65536];
  for (std::size_t count = 1; count > 0;) {
    count = std::fread(block, 1, sizeof block, stdin);
    bytes->append(block, count);
  }
  return std::ferror(stdin) == 0;
}

std::string FromLibraryText(const std::string& bytes) {
  const std::int32_t size = platform::AnsiToUtf8Bytes(bytes.c_str(), nullptr, 0);
  if (size < 1) {
    return bytes;
  }
  std::string text(static_cast<std::size_t>(size), '\0');
  platform::AnsiToUtf8Bytes(bytes.c_str(), text.data(), size);
  text.pop_back();
  return text;
}

}  // namespace zvqrn::tools
