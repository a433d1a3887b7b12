#include <fstream>

#include "common/event_client.h"
#include "system/run.h"

namespace zvqrn::bench {
namespace {

constexpr int REQUESTS_BEFORE = 50;

// What served the requests has a rest, and may end, before idling is watched.
constexpr double SETTLE_SECONDS = 3;

// How often threads of the process went to sleep, one that has ended meanwhile left out.
double SleepsSince(const std::map<std::string, double>& before,
                   const std::map<std::string, double>& after) {
  double sleeps = 0;
  for (const auto& [thread, count] : after) {
    const auto earlier = before.find(thread);
    sleeps += count - (earlier != before.end() ? earlier->second : 0);
  }
  return sleeps;
}

// What all processors have done so far, in the kernel's ticks.
struct MachineTime {
  double all = 0;
  double idle = 0;
};

MachineTime ReadMachineTime() {
  constexpr int FIRST_OF_IDLE = 3;  // and waiting for disks after it
  constexpr int STOLEN = 7;         // what comes later counts twice
  std::ifstream file("/proc/stat");
  std::string name;
  file >> name;
  MachineTime time;
  double ticks = 0;
  for (int field = 0; field <= STOLEN && file >> ticks; field++) {
    time.all += ticks;
    time.idle += field == FIRST_OF_IDLE || field == FIRST_OF_IDLE + 1 ? ticks : 0;
  }
  return time;
}

void Watch(const Settings& settings, const Child& host, const std::string& name, Results* results) {
  Pause(SETTLE_SECONDS);
  for (int slice = 0; slice < settings.idleSlices; slice++) {
    const auto sleeps = ReadSleeps(host);
    const MachineTime machine = ReadMachineTime();
    const double cpu = CpuNanoseconds(host);
    Pause(settings.idleSeconds);
    const double used = CpuNanoseconds(host) - cpu;
    results->series[name + ".cpu_percent"].push_back(used / (settings.idleSeconds * 1e9) * 100);
    results->series[name + ".wakeups"].push_back(SleepsSince(sleeps, ReadSleeps(host)) /
                                                 settings.idleSeconds);
    // Nothing of ours computes meanwhile.
    const MachineTime now = ReadMachineTime();
    results->series["machine.busy_percent"].push_back(100 - 100 * (now.idle - machine.idle) /
                                                                (now.all - machine.all));
  }
}

}  // namespace

void MeasureStartsAndStops(const std::vector<std::string>& host, int count,
                           const std::string& prefix, Results* results) {
  const Child service = StartChild(host, ANY_CORE);
  Order(service, "load");
  for (int i = 0; i < count; i++) {
    results->series[prefix + "start"].push_back(Order(service, "start"));
    results->series[prefix + "stop"].push_back(Order(service, "stop"));
  }
}

void MeasureIdling(const Settings& settings, Results* results) {
  const Child host = StartChild(NativeHost(settings), ANY_CORE);
  const Usage unloaded = ReadUsage(host);
  Order(host, "load");
  Order(host, "start");
  {
    EventClient scanner = ConnectToService();
    for (int i = 0; i < REQUESTS_BEFORE; i++) {
      Exchange(&scanner);
    }
  }
  Watch(settings, host, "idle", results);
  const Usage idle = ReadUsage(host);
  results->series["idle.resident_kb"] = {idle.residentKb - unloaded.residentKb};
  results->series["idle.anonymous_kb"] = {idle.anonymousKb - unloaded.anonymousKb};
  results->series["idle.threads"] = {idle.threads - 1};
  const EventClient silent = ConnectToService();
  Watch(settings, host, "connected", results);
  StopService(host);
}

}  // namespace zvqrn::bench
