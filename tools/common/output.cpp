#include "common/output.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>

#if defined(_WIN32)
#include "common/machine_text.h"
#include "platform/windows/windows_headers.h"
#endif

namespace zvqrn::tools {

namespace {

std::atomic<int> failure{0};  // the first errno
std::atomic<bool> withTimes{false};

std::string WithTime(const std::string& line) {
  return withTimes ? TimeText() + "  " + line : line;
}

#if defined(_WIN32)

// A console shows bytes in its own code page; characters it takes as they are.  False when the
// output is no console.
bool WriteToConsole(std::FILE* file, const std::string& text) {
  HANDLE console = GetStdHandle(file == stdout ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
  DWORD mode = 0;
  if (GetConsoleMode(console, &mode) == FALSE) {
    return false;
  }
  // Older systems take no more at once than fits a segment of memory of the console's own.
  constexpr std::size_t PIECE = 8192;
  const std::wstring wide = WideText(text);
  for (std::size_t at = 0; at < wide.size(); at += PIECE) {
    const std::wstring piece = wide.substr(at, PIECE);
    DWORD written = 0;
    if (WriteConsoleW(console, piece.data(), static_cast<DWORD>(piece.size()), &written, nullptr) ==
        FALSE) {
      failure = EIO;
    }
  }
  return true;
}

#else

bool WriteToConsole(std::FILE* /*file*/, const std::string& /*text*/) {
  return false;
}

#endif

void Write(std::FILE* file, const std::string& text) {
  if (WriteToConsole(file, text)) {
    return;
  }
  errno = 0;
  if (std::fwrite(text.data(), 1, text.size(), file) < text.size() || std::fflush(file) != 0) {
    int none = 0;
    failure.compare_exchange_strong(none, errno == 0 ? EIO : errno);
  }
}

}  // namespace

void PrepareOutput() {
#if defined(SIGPIPE)
  std::signal(SIGPIPE, SIG_IGN);
#endif
}

std::string TimeText() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
  const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
  std::tm parts{};
#if defined(_WIN32)
  gmtime_s(&parts, &seconds);
#else
  gmtime_r(&seconds, &parts);
#endif
  char text[32];
  char fraction[8];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(fraction, sizeof fraction, ".%03dZ", static_cast<int>(milliseconds % 1000));
  return std::string(text) + fraction;
}

void PrintTimes() {
  withTimes = true;
}

void PrintLine(const std::string& line) {
  Write(stdout, WithTime(line) + "\n");
}

void PrintError(const std::string& line) {
  Write(stderr, WithTime(line) + "\n");
}

void PrintBareLine(const std::string& line) {
  Write(stdout, line + "\n");
}

bool OutputFailed() {
  return failure != 0;
}

int EndOutput(const char* program, int exitCode, int failureCode) {
  const int reason = failure;
  if (reason == 0) {
    return exitCode;
  }
  // Who closes a pipe early has seen enough.
  if (reason != EPIPE) {
    PrintError(std::string(program) + ": the output cannot be written: " + std::strerror(reason));
  }
  return exitCode == 0 ? failureCode : exitCode;
}

}  // namespace zvqrn::tools
