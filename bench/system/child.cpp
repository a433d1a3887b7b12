#include "system/child.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace zvqrn::bench {
namespace {

std::string ProcessFolder(const Child& child) {
  return "/proc/" + std::to_string(child.id);
}

// The number behind a name in a status file of the kernel.
double StatusNumber(const std::string& file, const std::string& name) {
  std::ifstream status(file);
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(name + ":", 0) == 0) {
      return std::stod(line.substr(name.size() + 1));
    }
  }
  throw std::runtime_error(file + " tells nothing of " + name);
}

void MakePipe(Descriptor* reading, Descriptor* writing) {
  int ends[2];
  Checked(pipe2(ends, O_CLOEXEC), "making a pipe");
  *reading = Descriptor(ends[0]);
  *writing = Descriptor(ends[1]);
}

}  // namespace

Child::Child(Child&& other) noexcept
    : id(std::exchange(other.id, -1)),
      orders(std::move(other.orders)),
      replies(std::move(other.replies)) {}

Child::~Child() {
  if (id > 0) {
    orders = Descriptor();
    waitpid(id, nullptr, 0);
  }
}

Child StartChild(const std::vector<std::string>& command, std::size_t core) {
  Child child;
  Descriptor input;
  Descriptor output;
  MakePipe(&input, &child.orders);
  MakePipe(&child.replies, &output);
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input.Get(), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output.Get(), STDOUT_FILENO);
  const Pinned meanwhile(core);
  const int failure =
      posix_spawnp(&child.id, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) {
    child.id = -1;
    throw std::system_error(failure, std::generic_category(), command[0]);
  }
  return child;
}

std::string ReadReply(const Child& child) {
  std::string line;
  for (;;) {
    char letter = '\0';
    if (Checked(read(child.replies.Get(), &letter, 1), "reading from a program") == 0) {
      throw std::runtime_error("a measured program has ended early");
    }
    if (letter == '\n') {
      return line;
    }
    line += letter;
  }
}

double Order(const Child& host, const std::string& order) {
  const std::string line = order + "\n";
  Checked(write(host.orders.Get(), line.data(), line.size()), "writing to a program");
  std::istringstream reply(ReadReply(host));
  int result = 0;
  double nanoseconds = 0;
  if (!(reply >> result >> nanoseconds) || result != 1) {
    throw std::runtime_error("the host did not do this: " + order);
  }
  return nanoseconds;
}

double CpuNanoseconds(const Child& child) {
  clockid_t clock = 0;
  timespec time{};
  if (clock_getcpuclockid(child.id, &clock) != 0) {
    throw std::runtime_error("the kernel does not tell a program's processor time");
  }
  Checked(clock_gettime(clock, &time), "reading a program's processor time");
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

Usage ReadUsage(const Child& child) {
  const std::string status = ProcessFolder(child) + "/status";
  // The kernel counts 1024 bytes.
  return {StatusNumber(status, "VmRSS") * 1.024, StatusNumber(status, "RssAnon") * 1.024,
          StatusNumber(status, "Threads")};
}

std::map<std::string, double> ReadSleeps(const Child& child) {
  std::map<std::string, double> sleeps;
  for (const auto& thread : std::filesystem::directory_iterator(ProcessFolder(child) + "/task")) {
    sleeps[thread.path().filename()] =
        StatusNumber(thread.path() / "status", "voluntary_ctxt_switches");
  }
  return sleeps;
}

}  // namespace zvqrn::bench
