#include "common/statistics.h"
#include "system/run.h"

namespace zvqrn::bench {

void MeasureUnderWine(const Settings& settings, Results* results) {
  if (settings.windowsHost.empty()) {
    results->missing["wine."] = settings.noWindowsHost;
    return;
  }
  std::vector<double> starts;
  std::vector<double> stops;
  {
    const Child host = StartChild(settings.windowsHost);
    Order(host, "load");
    for (int i = 0; i < settings.starts; i++) {
      starts.push_back(Order(host, "start"));
      stops.push_back(Order(host, "stop"));
    }
  }
  results->figures["wine.start.median"] = Median(starts);
  results->figures["wine.stop.median"] = Median(stops);
  MeasureAnswers(settings, settings.windowsHost, "wine.", results);
  MeasureFirstReplies(settings, settings.windowsHost, "wine.", results);
}

}  // namespace zvqrn::bench
