#include "system/turns.h"

#include "common/statistics.h"
#include "system/run.h"

namespace zvqrn::bench {
namespace {

// What one contender took in one slice.
struct Slice {
  std::vector<double> times;
  double cpuNanoseconds = 0;
};

void TakeTurn(const Contender& contender, std::size_t exchanges, Slice* slice) {
  const double before = contender.host != nullptr ? CpuNanoseconds(*contender.host) : 0;
  for (std::size_t i = 0; i < exchanges; i++) {
    slice->times.push_back(contender.exchange());
  }
  if (contender.host != nullptr) {
    slice->cpuNanoseconds += CpuNanoseconds(*contender.host) - before;
  }
}

void Tell(const Slice& slice, const std::string& name, const Contender& contender,
          Results* results) {
  const auto count = static_cast<double>(slice.times.size());
  double sum = 0;
  for (const double time : slice.times) {
    sum += time;
  }
  const auto put = [&](const char* what, double value) {
    results->series[name + what + contender.name].push_back(value);
  };
  put(".median.", Median(slice.times));
  put(".p99.", Percentile(slice.times, 99));
  put(".rate.", count / (sum / 1e9));
  if (contender.host != nullptr) {
    put(".cpu.", slice.cpuNanoseconds / count);
  }
}

}  // namespace

void TakeTurns(const std::vector<Contender>& contenders, const Effort& effort,
               const std::string& name, Results* results) {
  const std::size_t count = contenders.size();
  for (const Contender& contender : contenders) {
    Slice unsettled;
    TakeTurn(contender, effort.exchanges, &unsettled);
  }
  for (std::size_t done = 0; done < effort.slices; done++) {
    std::vector<Slice> slices(count);
    const Deadline deadline(effort.seconds);
    for (std::size_t turn = 0; turn == 0 || (turn < effort.turns && !deadline.Passed()); turn++) {
      // Another one is first each time, and comes after another one's turn.
      for (std::size_t i = 0; i < count; i++) {
        const std::size_t next = (turn % 2 == 0 ? turn + i : turn + count - i) % count;
        TakeTurn(contenders[next], effort.exchanges, &slices[next]);
      }
      if (effort.pause > 0) {
        Pause(effort.pause);
      }
    }
    for (std::size_t i = 0; i < count; i++) {
      Tell(slices[i], name, contenders[i], results);
    }
  }
}

}  // namespace zvqrn::bench
