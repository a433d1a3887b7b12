// system_bench: measures the whole library from outside, beside its peers, and writes the figures.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <functional>

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

void SetEffort(bool quick, Settings* settings) {
  settings->answers = quick ? Limits{3, 500} : Limits{20, 10000};
  settings->growth = quick ? Limits{2, 200} : Limits{10, 1000};
  settings->discovery = quick ? Limits{3, 50} : Limits{10, 500};
  settings->starts = quick ? 3 : 15;
  settings->idleSeconds = quick ? 5 : 30;
}

void TellSize(const std::string& file, const std::string& name, Results* results) {
  if (file.empty()) {
    results->missing[name] = "not built here";
  } else {
    results->figures[name] = static_cast<double>(std::filesystem::file_size(file));
  }
}

void Step(const char* name, const std::function<void()>& measure) {
  std::fprintf(stderr, "Measuring %s ...\n", name);
  measure();
}

void Measure(const Options& options, const Settings& settings, Results* results) {
  TellSize(options.library, "size.so", results);
  TellSize(options.libraryX86, "size.dll32", results);
  TellSize(options.libraryX64, "size.dll64", results);
  Step("start, stop and idling", [&] { MeasureLifecycle(settings, results); });
  Step("answers", [&] { MeasureAnswers(settings, NativeHost(settings), "", results); });
  Step("the cost of many requests", [&] { MeasureGrowth(settings, results); });
  Step("discovery", [&] {
    MeasureFirstReplies(settings, NativeHost(settings), "", results);
    MeasureDiscoveryLoad(settings, results);
  });
  for (const WindowsHost& host : {settings.x64, settings.x86}) {
    Step("the library for Windows", [&] {
      // Wine is a guest: when it fails, the other figures stand.
      try {
        MeasureUnderWine(settings, host, results);
      } catch (const std::exception& failure) {
        results->missing[host.prefix] = std::string("it failed: ") + failure.what();
      }
    });
  }
}

int Run(int argc, char** argv) {
  Options options;
  Settings settings{};
  CLI::App app("Measures the library beside its peers.");
  app.add_option("--folder", settings.folder, "Folder of the benchmarks' programs")->required();
  app.add_option("--results", options.results, "File for the figures")->required();
  app.add_option("--library", options.library, "The stripped libZVQRN.so");
  app.add_option("--library-x86", options.libraryX86, "The stripped ZVQRN.dll for 32 bits");
  app.add_option("--library-x64", options.libraryX64, "The stripped ZVQRN.dll for 64 bits");
  app.add_option("--host-x86", settings.x86.command, "The command of the 32-bit host under Wine");
  app.add_option("--host-x64", settings.x64.command, "The command of the 64-bit host under Wine");
  app.add_option("--no-host-x86", settings.x86.whyNot, "Why there is no Wine for 32 bits here");
  app.add_option("--no-host-x64", settings.x64.whyNot, "Why there is no Wine for 64 bits here");
  app.add_flag("--quick", options.quick, "A few samples of each, to try things out");
  CLI11_PARSE(app, argc, argv);
  SetEffort(options.quick, &settings);
  Results results;
  results.figures["quick"] = options.quick ? 1 : 0;
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
