// The measurements of the whole library, each in a function of its own that puts its figures into
// the results.  They run one after the other, because the service's port is fixed.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "common/results.h"
#include "system/child.h"

namespace zvqrn::bench {

// How long one measurement may take, and how many samples it wants; a kind that has taken its time
// is told from what it has.
struct Limits {
  double seconds;
  std::size_t samples;
};

// The host with the library for Windows, of one bitness.
struct WindowsHost {
  std::string prefix;                // of its figures
  std::vector<std::string> command;  // that runs it under Wine; empty: it cannot run here
  std::string whyNot;
};

struct Settings {
  std::string folder;  // of the benchmarks' programs
  WindowsHost x64{"wine64.", {}, ""};
  WindowsHost x86{"wine32.", {}, ""};
  Limits answers;
  // Of a fresh connection's window; a long-used one's is ten times as long, and a count may take
  // ten times as long to reach.
  Limits growth;
  Limits discovery;
  int starts;
  double idleSeconds;
};

// A host process with the service running.
Child StartService(const std::vector<std::string>& command);
std::vector<std::string> NativeHost(const Settings& settings);

// Stops the service: the host's next end is its own.
void StopService(const Child& host);

// A moment after which a measurement is over.
class Deadline {
 public:
  explicit Deadline(double seconds)
      : end_(Clock::now() +
             std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds))) {}
  bool Passed() const { return Clock::now() >= end_; }

 private:
  using Clock = std::chrono::steady_clock;
  Clock::time_point end_;
};

void Pause(double seconds);

// start.*, stop.*, idle.*: start, stop, and what a service without work costs.
void MeasureLifecycle(const Settings& settings, Results* results);

// answer.*, rate.*: answer times and requests per second, beside the peers.  `prefix` goes before
// each name; the figures of the peers stand beside each host's.
void MeasureAnswers(const Settings& settings, const std::vector<std::string>& host,
                    const std::string& prefix, Results* results);

// growth.*: what a request costs after many others on its connection, and with open STARTs.
void MeasureGrowth(const Settings& settings, Results* results);

// discovery.*: the first reply, and many requests.
void MeasureFirstReplies(const Settings& settings, const std::vector<std::string>& host,
                         const std::string& prefix, Results* results);
void MeasureDiscoveryLoad(const Settings& settings, Results* results);

// wine64.*, wine32.*: the first figures of each kind with the library for Windows.
void MeasureUnderWine(const Settings& settings, const WindowsHost& host, Results* results);

}  // namespace zvqrn::bench
