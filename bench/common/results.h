// What one benchmark program hands to the report: series of figures by name, and the reasons for
// those that could not be had.  Between the programs it is a file of lines with tabs.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace zvqrn::bench {

struct Results {
  // One value a slice.  Those that took turns have as many: values of one place belong together.
  std::map<std::string, std::vector<double>> series;
  std::map<std::string, std::string> missing;  // name of a series, or its beginning: why
};

void WriteResults(const Results& results, const std::string& path);

// Adds what another program has written.
void ReadResults(const std::string& path, Results* results);

}  // namespace zvqrn::bench
