#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "support/host.h"
#include "support/process.h"
#include "support/slp_scanner.h"

namespace zvqrn::test {
namespace {

std::ptrdiff_t Count(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), {});
}

}  // namespace

const char* const SCANNER_ADDRESS = "10.68.0.3";

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

bool IsLoaded() {
  return dlopen(LibraryPath().c_str(), RTLD_NOW | RTLD_NOLOAD) != nullptr;
}

void RunCommand(const std::string& command) {
  ASSERT_TRUE(InPrivateNetwork());
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
}

}  // namespace zvqrn::test
