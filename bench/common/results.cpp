#include "common/results.h"

#include <fstream>
#include <nlohmann/json.hpp>

namespace zvqrn::bench {

void WriteResults(const Results& results, const std::string& path) {
  std::ofstream file;
  file.exceptions(std::ios::failbit | std::ios::badbit);
  file.open(path);
  file << nlohmann::json{{"figures", results.figures}, {"missing", results.missing}}.dump(2)
       << '\n';
}

void ReadResults(const std::string& path, Results* results) {
  const nlohmann::json read = nlohmann::json::parse(std::ifstream(path));
  for (const auto& [name, value] : read.at("figures").items()) {
    results->figures[name] = value.get<double>();
  }
  for (const auto& [name, why] : read.at("missing").items()) {
    results->missing[name] = why.get<std::string>();
  }
}

}  // namespace zvqrn::bench
