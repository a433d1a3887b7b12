#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "common/module_loader.h"
#include "support/host.h"
#include "support/patience.h"
#include "support/process.h"
#include "support/slp_scanner.h"

namespace zvqrn::test {
namespace {

std::ptrdiff_t Count(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), {});
}

char whatIsLate[200];

void EndLate(int /*signal*/) {
  for (const char* text : {"not ended in time: ", static_cast<const char*>(whatIsLate), "\n"}) {
    if (write(STDERR_FILENO, text, strlen(text)) < 0) {
      break;
    }
  }
  abort();
}

}  // namespace

const char* const SCANNER_ADDRESS = "10.68.0.3";

// Whole, for an editor starts tests from a folder of its own.
const char* const PRIVATE_STARTER = REPOSITORY_FOLDER "/scripts/private_network.sh";

const char* MulticastInterface(const char* address) {
  return address;
}

std::ptrdiff_t Threads() {
  return Count("/proc/self/task");
}

std::ptrdiff_t Handles() {
  return Count("/proc/self/fd");
}

std::int64_t ResidentKilobytes() {
  std::ifstream pages("/proc/self/statm");
  std::int64_t all = 0, resident = 0;
  pages >> all >> resident;
  return resident * getpagesize() / 1024;
}

std::int64_t ProcessorMilliseconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000 +
         (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1000;
}

bool OthersSleep() {
  // Each thread's line begins with "TID (NAME) STATE".
  const std::string self = std::to_string(gettid());
  const std::filesystem::directory_iterator threads("/proc/self/task");
  return std::all_of(begin(threads), end(threads), [&](const auto& thread) {
    std::string line;
    std::getline(std::ifstream(thread.path() / "stat"), line);
    const std::size_t state = line.rfind(')') + 2;
    return thread.path().filename() == self || line.empty() || line[state] == 'S';
  });
}

bool OthersComeToRest() {
  // One look may meet a thread that waits for another for a moment.
  constexpr int LOOKS = 3;
  int quiet = 0;
  return Eventually([&] {
    quiet = OthersSleep() ? quiet + 1 : 0;
    return quiet == LOOKS;
  });
}

bool IsLoaded() {
  const std::string utility = tools::ProgramFolder() + "/libDRAVLIB.so";
  for (const std::string& path : {LibraryPath(), utility}) {
    if (void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD)) {
      dlclose(module);
      return true;
    }
  }
  return false;
}

void EndProcessAfter(int seconds, const char* what) {
  snprintf(whatIsLate, sizeof whatIsLate, "%s", what);
  signal(SIGALRM, &EndLate);
  alarm(static_cast<unsigned>(seconds));
}

void RunCommand(const std::string& command) {
  ASSERT_TRUE(InPrivateNetwork());
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
}

}  // namespace zvqrn::test
