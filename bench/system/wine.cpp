#include "system/run.h"

namespace zvqrn::bench {

void MeasureUnderWine(const Settings& settings, const WindowsHost& host, Results* results) {
  const std::string prefix = host.name + ".";
  const std::string machine = host.name == settings.x64.name ? "x64" : "x86";
  const std::vector<std::string> command = {"scripts/under_wine.sh", machine,
                                            host.folder + "/bench_host.exe",
                                            host.folder + "/ZVQRN.dll"};
  MeasureStartsAndStops(command, settings.startStops, prefix, results);
  for (const Placement& placement : settings.placements) {
    const Pinned scanner(placement.scannerCore);
    const Child service = StartService(command, placement.hostCore);
    MeasureAnswers(settings, placement, settings.wine, prefix + Prefix(placement), results);
    MeasureFirstReplies(settings, placement, settings.wineDiscovery, prefix + Prefix(placement),
                        results);
    StopService(service);
  }
}

}  // namespace zvqrn::bench
