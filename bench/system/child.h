// A program that is measured from outside: it obeys lines of text, and the kernel tells what it
// uses.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "common/sockets.h"

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

Child StartChild(const std::vector<std::string>& command);

// The next line that the child says; throws when it says nothing more.
std::string ReadReply(const Child& child);

// Has the host load the library, start or stop the service; gives the nanoseconds that it took and
// throws when it was not done.
double Order(const Child& host, const std::string& order);

// What the kernel counts for the process.
struct Usage {
  double cpuNanoseconds;  // of all threads, ended ones included
  double residentKb;
  double anonymousKb;  // the part of it that belongs to no file
  double threads;
  double switches;  // voluntary context switches of the threads there are
};
Usage ReadUsage(const Child& child);

}  // namespace zvqrn::bench
