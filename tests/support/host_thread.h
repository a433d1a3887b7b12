// A thread of the host's, in tests that the simulated machine runs too.
#pragma once

#if defined(QUORIN_SIMULATED)
#include <functional>
#else
#include <thread>
#endif

namespace zvqrn::test {

#if defined(QUORIN_SIMULATED)
class HostThread {
 public:
  explicit HostThread(const std::function<void()>& run);
  void join();

 private:
  bool done_ = false;
};
#else
using HostThread = std::thread;
#endif

}  // namespace zvqrn::test
