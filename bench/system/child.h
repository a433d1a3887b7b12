// A program that is measured from outside: it obeys lines of text, and the kernel tells what it
// uses.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

#include "common/sockets.h"
#include "system/placement.h"

namespace zvqrn::bench {

struct Child {
  pid_t id = -1;
  Descriptor orders;
  Descriptor replies;

  Child() = default;
  Child(Child&& other) noexcept;
  Child& operator=(Child&&) = delete;
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  // Ends its input and waits for it.
  ~Child();
};

// Starts a program that stays on that core with all its threads, or anywhere (ANY_CORE).
Child StartChild(const std::vector<std::string>& command, std::size_t core);

// The next line that the child says; throws when it says nothing more.
std::string ReadReply(const Child& child);

// Has the host do something (bench_host says what); gives the nanoseconds that it took and throws
// when it was not done.
double Order(const Child& host, const std::string& order);

// Processor time of all threads, ended ones included.
double CpuNanoseconds(const Child& child);

// What the kernel counts for the process.
struct Usage {
  double residentKb;
  double anonymousKb;  // the part of it that belongs to no file
  double threads;
};
Usage ReadUsage(const Child& child);

// How often each thread there is has gone to sleep of its own accord, by the thread's id.
std::map<std::string, double> ReadSleeps(const Child& child);

}  // namespace zvqrn::bench
