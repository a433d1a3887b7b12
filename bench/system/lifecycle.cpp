#include "common/statistics.h"
#include "system/run.h"

namespace zvqrn::bench {
namespace {

// The threads that a start leaves behind need a moment to reach their waits.
constexpr double SETTLE_SECONDS = 1;

}  // namespace

void MeasureLifecycle(const Settings& settings, Results* results) {
  const Child host = StartChild(NativeHost(settings));
  const Usage unloaded = ReadUsage(host);
  Order(host, "load");
  std::vector<double> starts;
  std::vector<double> stops;
  for (int i = 0; i < settings.starts; i++) {
    starts.push_back(Order(host, "start"));
    stops.push_back(Order(host, "stop"));
  }
  results->figures["start.median"] = Median(starts);
  results->figures["stop.median"] = Median(stops);

  Order(host, "start");
  Pause(SETTLE_SECONDS);
  const Usage before = ReadUsage(host);
  Pause(settings.idleSeconds);
  const Usage after = ReadUsage(host);
  const double used = after.cpuNanoseconds - before.cpuNanoseconds;
  results->figures["idle.cpu_per_minute"] = used / settings.idleSeconds * 60;
  results->figures["idle.cpu_percent"] = used / (settings.idleSeconds * 1e9) * 100;
  results->figures["idle.wakeups"] = (after.switches - before.switches) / settings.idleSeconds;
  results->figures["idle.resident_kb"] = after.residentKb - unloaded.residentKb;
  results->figures["idle.anonymous_kb"] = after.anonymousKb - unloaded.anonymousKb;
  results->figures["idle.threads"] = after.threads - 1;
  StopService(host);
}

}  // namespace zvqrn::bench
