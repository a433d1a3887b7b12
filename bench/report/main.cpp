// bench_report FOLDER MACHINE: makes the table out of what the benchmarks have left in the folder
// (rooms.json, allocations.txt, system.txt), prints it, and writes results.json and results.md.
#include <cstdio>
#include <exception>
#include <fstream>
#include <nlohmann/json.hpp>

#include "report/table.h"

namespace zvqrn::bench {
namespace {

using Json = nlohmann::ordered_json;

// Google Benchmark's own format: the processor time of each repetition.
void ReadRooms(const std::string& path, Results* results) {
  const Json read = Json::parse(std::ifstream(path));
  for (const Json& benchmark : read.at("benchmarks")) {
    if (benchmark.at("run_type") == "iteration") {
      results->series[benchmark.at("run_name")].push_back(benchmark.at("cpu_time"));
    }
  }
}

std::string Summary(const std::vector<Judged>& rows) {
  int met = 0;
  int missed = 0;
  int missing = 0;
  for (const Judged& row : rows) {
    met += row.verdict == "met" ? 1 : 0;
    missed += row.verdict == "MISSED" ? 1 : 0;
    missing += row.verdict.rfind("not measured", 0) == 0 ? 1 : 0;
  }
  return std::to_string(met) + " aims met, " + std::to_string(missed) + " missed, " +
         std::to_string(missing) + " rows not measured";
}

Json JsonRow(const Judged& judged) {
  const auto number = [](const std::optional<double>& value) {
    return value ? Json(*value) : Json();
  };
  const auto spread = [](const std::optional<Spread>& value) {
    return value ? Json{{"low", value->low}, {"median", value->median}, {"high", value->high}}
                 : Json();
  };
  return {{"group", judged.group},           {"what", judged.row.what},
          {"ours", number(judged.ours)},     {"peerName", judged.row.peerName},
          {"peer", number(judged.peer)},     {"ratio", spread(judged.ratio)},
          {"spread", spread(judged.judged)}, {"aim", AimText(judged.row)},
          {"verdict", judged.verdict}};
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
  ReadResults(folder + "/allocations.txt", &results);
  ReadResults(folder + "/system.txt", &results);
  if (results.series.at("quick").front() > 0) {
    machine += "; a quick run, too short for figures to rely on";
  }
  const std::vector<Judged> rows = JudgeRows(results);
  const std::string summary = Summary(rows);
  std::printf("%s\n\n%s\n%s.\n", machine.c_str(), PlainTable(rows).c_str(), summary.c_str());
  Write(folder + "/results.md", machine + ".\n\n" + MarkdownTable(rows) + "\n" + summary + ".\n");
  Json all;
  all["machine"] = machine;
  all["rows"] = Json::array();
  for (const Judged& row : rows) {
    all["rows"].push_back(JsonRow(row));
  }
  all["slices"] = results.series;
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
