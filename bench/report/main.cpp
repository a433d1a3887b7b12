// bench_report FOLDER MACHINE: makes the table out of what the benchmarks have left in the folder
// (rooms.json, allocations.json, system.json), prints it, and writes results.json and results.md.
#include <cstdio>
#include <exception>
#include <fstream>

#include "report/table.h"

namespace zvqrn::bench {
namespace {

// Google Benchmark's own format: the medians of the processor times.
void ReadRooms(const std::string& path, Results* results) {
  const nlohmann::json read = nlohmann::json::parse(std::ifstream(path));
  for (const nlohmann::json& benchmark : read.at("benchmarks")) {
    const auto aggregate = benchmark.find("aggregate_name");
    if (aggregate != benchmark.end() && *aggregate == "median") {
      results->figures[benchmark.at("run_name").get_ref<const std::string&>()] =
          benchmark.at("cpu_time").get<double>();
    }
  }
}

std::string Summary(const std::vector<Line>& lines) {
  int met = 0;
  int missed = 0;
  int missing = 0;
  for (const Line& line : lines) {
    met += line.verdict == "met" ? 1 : 0;
    missed += line.verdict == "MISSED" ? 1 : 0;
    missing += line.verdict.rfind("not measured", 0) == 0 ? 1 : 0;
  }
  return std::to_string(met) + " aims met, " + std::to_string(missed) + " missed, " +
         std::to_string(missing) + " rows not measured";
}

void Write(const std::string& path, const std::string& text) {
  std::ofstream file;
  file.exceptions(std::ios::failbit | std::ios::badbit);
  file.open(path);
  file << text;
}

void Report(const std::string& folder, std::string machine) {
  Results results;
  ReadRooms(folder + "/rooms.json", &results);
  ReadResults(folder + "/allocations.json", &results);
  ReadResults(folder + "/system.json", &results);
  if (results.figures["quick"] > 0) {
    machine += "; a quick run, too short for figures to rely on";
  }
  const std::vector<Line> lines = FillRows(results);
  const std::string summary = Summary(lines);
  std::printf("%s\n\n%s\n%s.\n", machine.c_str(), PlainTable(lines).c_str(), summary.c_str());
  Write(folder + "/results.md", machine + ".\n\n" + MarkdownTable(lines) + "\n" + summary + ".\n");
  nlohmann::ordered_json all;
  all["machine"] = machine;
  all["rows"] = JsonRows(results);
  all["figures"] = results.figures;
  all["missing"] = results.missing;
  Write(folder + "/results.json", all.dump(2) + "\n");
}

}  // namespace
}  // namespace zvqrn::bench

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: bench_report FOLDER MACHINE\n", stderr);
    return 2;
  }
  try {
    zvqrn::bench::Report(argv[1], argv[2]);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "bench_report: %s\n", failure.what());
    return 1;
  }
  return 0;
}
