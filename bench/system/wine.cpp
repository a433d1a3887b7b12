#include "common/statistics.h"
#include "system/run.h"

namespace zvqrn::bench {

void MeasureUnderWine(const Settings& settings, const WindowsHost& windowsHost, Results* results) {
  const std::string& prefix = windowsHost.prefix;
  if (windowsHost.command.empty()) {
    results->missing[prefix] = windowsHost.whyNot;
    return;
  }
  std::vector<double> starts;
  std::vector<double> stops;
  {
    const Child host = StartChild(windowsHost.command);
    Order(host, "load");
    for (int i = 0; i < settings.starts; i++) {
      starts.push_back(Order(host, "start"));
      stops.push_back(Order(host, "stop"));
    }
  }
  results->figures[prefix + "start.median"] = Median(starts);
  results->figures[prefix + "stop.median"] = Median(stops);
  MeasureAnswers(settings, windowsHost.command, prefix, results);
  MeasureFirstReplies(settings, windowsHost.command, prefix, results);
}

}  // namespace zvqrn::bench
