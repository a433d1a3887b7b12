// system_bench: measures the whole library from outside, beside its peers, and writes the figures.
// It is run in the folder of the project, by scripts/bench.sh.
#include <cstdio>
#include <exception>
#include <filesystem>
#include <functional>

#include "common/command_line.h"
#include "system/run.h"

namespace zvqrn::bench {
namespace {

struct Options {
  std::string results;
  std::string library;
  std::string libraryX86;
  std::string libraryX64;
  bool quick = false;
};

// The seconds of each effort only bound what is slow; all slices together take some minutes.
void SetEffort(bool quick, Settings* settings) {
  settings->rounds = quick ? 1 : 3;
  settings->answers = {quick ? 3U : 8U, quick ? 20U : 100U, 10, 1};
  settings->pipelined = {quick ? 3U : 4U, 4, 1, 0.5};
  settings->starts = {quick ? 3U : 6U, 10, 5, quick ? 0.5 : 1};
  settings->reconnects = {quick ? 3U : 4U, 10, 5, 0.5};
  settings->growth = {quick ? 5U : 20U, 50, 10, 0.5};
  settings->growthSeconds = quick ? 20 : 100;
  // With pauses: a burst takes a second of a service that may have a thread for each.
  settings->discovery = {quick ? 3U : 6U, 25, 5, 0.8, 0.02};
  settings->loadSlices = quick ? 1 : 3;
  settings->burstSlices = 1;
  settings->wine = {quick ? 3U : 10U, 100, 5, 0.5};
  settings->wineDiscovery = {quick ? 3U : 10U, 25, 5, 0.5, 0.02};
  settings->startStops = quick ? 3 : 9;
  settings->idleSlices = quick ? 2 : 5;
  settings->idleSeconds = quick ? 2 : 4;
}

void TellSize(const std::string& file, const std::string& name, Results* results) {
  if (file.empty()) {
    results->missing[name] = "not built here";
  } else {
    results->series[name] = {static_cast<double>(std::filesystem::file_size(file))};
  }
}

void Step(const std::string& name, const std::function<void()>& measure) {
  std::fprintf(stderr, "Measuring %s ...\n", name.c_str());
  measure();
}

// One round of all that is pinned.
void MeasureRound(const Settings& settings, Results* results) {
  for (const Placement& placement : settings.placements) {
    const Pinned scanner(placement.scannerCore);
    {
      const Child service = StartService(NativeHost(settings), placement.hostCore);
      MeasureDiscoveryLoad(settings, placement, service, results);
      MeasureFirstReplies(settings, placement, settings.discovery, Prefix(placement), results);
      StopService(service);
    }
    const Child service = StartService(NativeHost(settings), placement.hostCore);
    MeasureExchanges(settings, placement, service, results);
    StopService(service);
  }
}

void MeasureWine(const Settings& settings, const WindowsHost& host, Results* results) {
  if (host.folder.empty()) {
    results->missing[host.name] = host.whyNot;
    return;
  }
  // Wine is a guest: when it fails, the other figures stand.
  try {
    Results own;
    MeasureUnderWine(settings, host, &own);
    results->series.merge(own.series);
  } catch (const std::exception& failure) {
    results->missing[host.name] = std::string("it failed: ") + failure.what();
  }
}

void Measure(const Options& options, const Settings& settings, Results* results) {
  TellSize(options.library, "size.so", results);
  TellSize(options.libraryX86, "size.dll32", results);
  TellSize(options.libraryX64, "size.dll64", results);
  Step("start, stop and idling", [&] {
    MeasureStartsAndStops(NativeHost(settings), settings.startStops, "", results);
    MeasureIdling(settings, results);
  });
  for (int round = 1; round <= settings.rounds; round++) {
    Step("exchanges and discovery, round " + std::to_string(round) + " of " +
             std::to_string(settings.rounds),
         [&] { MeasureRound(settings, results); });
  }
  Step("the cost of many requests", [&] {
    const Pinned scanner(settings.placements.front().scannerCore);
    MeasureGrowth(settings, settings.placements.front(), results);
  });
  Step("the 64-bit library for Windows", [&] { MeasureWine(settings, settings.x64, results); });
  Step("the 32-bit library for Windows", [&] { MeasureWine(settings, settings.x86, results); });
}

int Run(int argc, char** argv) {
  Options options;
  Settings settings{};
  const auto addOptions = [&](tools::CommandLine* line) {
    const auto add = [&](const char* name, const char* text, std::string* value) {
      tools::AddText(line, {name, nullptr, text}, value);
    };
    add("--folder", "Folder of the benchmarks' programs", &settings.folder);
    add("--results", "File for the figures", &options.results);
    add("--library", "The stripped libZVQRN.so", &options.library);
    add("--library-x86", "The stripped ZVQRN.dll for 32 bits", &options.libraryX86);
    add("--library-x64", "The stripped ZVQRN.dll for 64 bits", &options.libraryX64);
    add("--host-x86", "Folder of the 32-bit host, to be run under Wine", &settings.x86.folder);
    add("--host-x64", "Folder of the 64-bit host, to be run under Wine", &settings.x64.folder);
    add("--no-host-x86", "Why there is no Wine for 32 bits here", &settings.x86.whyNot);
    add("--no-host-x64", "Why there is no Wine for 64 bits here", &settings.x64.whyNot);
    tools::AddFlag(line, {"--quick", nullptr, "A few samples of each, to try things out"},
                   &options.quick);
  };
  int exitCode = 0;
  const tools::ProgramHelp help{"system_bench", "Measures the library beside its peers.", "",
                                [] { return std::string("system_bench"); }};
  if (!tools::ReadCommandLine(
          {argv + 1, argv + argc}, help, addOptions, [] {}, &exitCode)) {
    return exitCode;
  }
  SetEffort(options.quick, &settings);
  settings.placements = AllPlacements();
  Results results;
  results.series["quick"] = {options.quick ? 1.0 : 0.0};
  if (settings.placements.size() == 1) {
    for (const std::string& name :
         {std::string(), settings.x64.name + ".", settings.x86.name + "."}) {
      results.missing[name + TWO_CORES] = "this machine has one core";
    }
  }
  Measure(options, settings, &results);
  WriteResults(results, options.results);
  return 0;
}

}  // namespace
}  // namespace zvqrn::bench

int main(int argc, char** argv) {
  try {
    return zvqrn::bench::Run(argc, argv);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "system_bench: %s\n", failure.what());
    return 1;
  }
}
