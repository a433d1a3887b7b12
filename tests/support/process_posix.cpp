#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "support/process.h"
#include "support/slp_scanner.h"

namespace zvqrn::test {
namespace {

std::ptrdiff_t Count(const char* folder) {
  const std::filesystem::directory_iterator entries(folder);
  return std::distance(begin(entries), end(entries));
}

// What follows `begin` in the first line of the file that holds it; empty without one.
std::string FindLine(const char* path, const std::string& begin) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (line.find(begin) != std::string::npos) {
      return line.substr(line.find(begin) + begin.size()) + " ";
    }
  }
  return "";
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
  return std::stoll(FindLine("/proc/self/status", "VmRSS:"));
}

std::int64_t ProcessorMilliseconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000 +
         (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1000;
}

bool IsLoaded() {
  return !FindLine("/proc/self/maps", "libZVQRN.so").empty();
}

void ResetConnection(platform::SocketHandle socket) {
  const linger atOnce{1, 0};
  setsockopt(static_cast<int>(socket), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  platform::CloseSocket(socket);
}

void RunCommand(const std::string& command) {
  ASSERT_TRUE(InPrivateNetwork());
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
}

}  // namespace zvqrn::test
