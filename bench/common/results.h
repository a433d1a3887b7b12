// What one benchmark program hands to the report: figures by name, and the reasons for those that
// could not be had.
#pragma once

#include <map>
#include <string>

namespace zvqrn::bench {

struct Results {
  std::map<std::string, double> figures;
  std::map<std::string, std::string> missing;  // name of a figure, or its beginning: why
};

void WriteResults(const Results& results, const std::string& path);

// Adds what another program has written.
void ReadResults(const std::string& path, Results* results);

}  // namespace zvqrn::bench
