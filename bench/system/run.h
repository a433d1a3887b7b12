// The measurements of the whole library, each in a function of its own that adds its slices to the
// results.  They run one after the other, because the service's port is fixed.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "common/results.h"
#include "peers/peers.h"
#include "system/child.h"
#include "system/turns.h"

namespace zvqrn::bench {

// The host with the library for Windows, of one machine.
struct WindowsHost {
  std::string name;    // of its figures
  std::string folder;  // where it lies; empty: it cannot run here
  std::string whyNot;
};

// How much is measured.  An effort's slices are those of one round.
struct Settings {
  std::string folder;                 // of the benchmarks' programs
  std::vector<Placement> placements;  // the calling thread is pinned while one is measured
  WindowsHost x64{"wine64", "", ""};
  WindowsHost x86{"wine32", "", ""};
  int rounds;  // each with processes of its own, so that no figure rests on one moment
  Effort answers;
  Effort pipelined;
  Effort starts;  // with the host's data
  Effort reconnects;
  Effort growth;
  double growthSeconds;  // that reaching a count may take
  Effort discovery;
  int loadSlices;   // of first replies under load
  int burstSlices;  // of whole bursts
  Effort wine;
  Effort wineDiscovery;
  int startStops;
  int idleSlices;
  double idleSeconds;  // a slice
};

// The name of a figure of a placement begins so.
std::string Prefix(const Placement& placement);

// A host process with the service running.
std::vector<std::string> NativeHost(const Settings& settings);
Child StartService(const std::vector<std::string>& command, std::size_t core);

// The peers, on the host's core.
Child StartPeers(const Settings& settings, const Placement& placement, const PeerSizes& sizes);

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

// start, stop: what the host waits for.
void MeasureStartsAndStops(const std::vector<std::string>& host, int count,
                           const std::string& prefix, Results* results);

// idle.*, connected.*: what a service without work costs, and one with a silent scanner; machine.*:
// what else the machine does.
void MeasureIdling(const Settings& settings, Results* results);

// answer.*: an answer beside those of the peers, from a service that runs where the placement says.
void MeasureAnswers(const Settings& settings, const Placement& placement, const Effort& effort,
                    const std::string& prefix, Results* results);

// All kinds of exchanges on the main connection: answer.*, start_data.*, pipelined.*, waiting.*,
// reconnect.*.
void MeasureExchanges(const Settings& settings, const Placement& placement, const Child& service,
                      Results* results);

// growth.*: what a request costs after many others on its connection, and with open STARTs.
void MeasureGrowth(const Settings& settings, const Placement& placement, Results* results);

// discovery.*: the first reply; then many requests.
void MeasureFirstReplies(const Settings& settings, const Placement& placement, const Effort& effort,
                         const std::string& prefix, Results* results);
void MeasureDiscoveryLoad(const Settings& settings, const Placement& placement,
                          const Child& service, Results* results);

// wine64.*, wine32.*: the first figures of each kind with the library for Windows.
void MeasureUnderWine(const Settings& settings, const WindowsHost& host, Results* results);

}  // namespace zvqrn::bench
