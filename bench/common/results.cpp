#include "common/results.h"

#include <fstream>
#include <limits>
#include <sstream>
#include <stdexcept>

namespace zvqrn::bench {
namespace {

constexpr char SERIES[] = "series";
constexpr char MISSING[] = "missing";

}  // namespace

void WriteResults(const Results& results, const std::string& path) {
  std::ofstream file;
  file.exceptions(std::ios::failbit | std::ios::badbit);
  file.open(path);
  file.precision(std::numeric_limits<double>::max_digits10);
  for (const auto& [name, values] : results.series) {
    file << SERIES << '\t' << name;
    for (const double value : values) {
      file << '\t' << value;
    }
    file << '\n';
  }
  for (const auto& [name, why] : results.missing) {
    // Only its first line: a line is one result.
    file << MISSING << '\t' << name << '\t' << why.substr(0, why.find('\n')) << '\n';
  }
}

void ReadResults(const std::string& path, Results* results) {
  std::ifstream file(path);
  if (!file) {
    throw std::runtime_error("cannot read " + path);
  }
  for (std::string text; std::getline(file, text);) {
    std::istringstream line(text);
    std::string kind;
    std::string name;
    std::getline(line, kind, '\t');
    std::getline(line, name, '\t');
    if (kind == MISSING) {
      std::getline(line, results->missing[name]);
      continue;
    }
    std::vector<double>& values = results->series[name];
    for (double value = 0; line >> value;) {
      values.push_back(value);
    }
    if (kind != SERIES || values.empty() || !line.eof()) {
      throw std::runtime_error(path + " holds a line that is no result");
    }
  }
}

}  // namespace zvqrn::bench
