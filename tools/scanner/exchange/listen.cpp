#include <algorithm>
#include <cstdio>
#include <fstream>
#include <limits>
#include <memory>

#include "common/interrupt.h"
#include "common/machine_text.h"
#include "common/output.h"
#include "common/text.h"
#include "platform/clock.h"
#include "scanner/command/commands.h"
#include "scanner/exchange/report.h"
#include "scanner/exchange/request_options.h"
#include "scanner/exchange/send_request.h"
#include "scanner/wire/exchange.h"

namespace zvqrn::scanner {

namespace {

struct ListenOptions {
  RequestOptions request;
  double seconds = 0;  // 0: until Ctrl-C
  int count = 0;       // 0: any number
  std::string saveFolder;
  std::string outputFile;
};

// How often a wait for data looks for Ctrl-C.
constexpr std::int64_t LOOK_EVERY_MS = 100;

constexpr char DESCRIPTION[] = "Sends a START, shows the data that the host sends, sends the END";

constexpr char EXAMPLES[] =
    "Without --for and --count it listens until Ctrl-C; it ends with its END in every case.\n"
    "Ends with 3 when no data came at all, with 5 when less came than --count wants.\n"
    "\n"
    "Examples:\n"
    "  quorin-scanner listen --to 192.0.2.7\n"
    "  quorin-scanner listen --count 2 --for 30 --save pages\n"
    "  quorin-scanner listen --count 1 --output page.pdf --json\n"
    "\n";

void WriteFile(const std::string& path, const std::string& bytes, std::ios::openmode how) {
  std::ofstream file(tools::PathOf(path), std::ios::binary | how);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file) {
    throw Failure(EXIT_LOCAL_TROUBLE, "cannot write '" + path + "'");
  }
}

// Puts the data where the options want it and gives the file's path; empty when it is printed.
// Names are made here, never from what the network says.
std::string SaveData(const ListenOptions& options, int number, const std::string& bytes) {
  if (!options.saveFolder.empty()) {
    char name[32];
    std::snprintf(name, sizeof name, "data-%04d.bin", number);
    std::string path = tools::TextOf(tools::PathOf(options.saveFolder) / name);
    WriteFile(path, bytes, std::ios::trunc);
    return path;
  }
  if (!options.outputFile.empty()) {
    WriteFile(options.outputFile, bytes, number == 1 ? std::ios::trunc : std::ios::app);
  }
  return options.outputFile;
}

void PrepareFiles(const ListenOptions& options) {
  std::error_code failed;
  if (!options.saveFolder.empty()) {
    const std::filesystem::path folder = tools::PathOf(options.saveFolder);
    std::filesystem::create_directories(folder, failed);
    if (!std::filesystem::is_directory(folder, failed)) {
      throw Failure(EXIT_LOCAL_TROUBLE, "cannot make the folder '" + options.saveFolder + "'");
    }
  }
  if (!options.outputFile.empty()) {
    WriteFile(options.outputFile, {}, std::ios::trunc);
  }
}

void ListenUntilEnd(Connection* connection, const ListenOptions& options, const int& count,
                    const DataHandler& onData) {
  const std::int64_t endMs =
      options.seconds > 0
          ? platform::MonotonicMilliseconds() + static_cast<std::int64_t>(options.seconds * 1000)
          : std::numeric_limits<std::int64_t>::max();
  while (!tools::InterruptCame() && !tools::OutputFailed() &&
         (options.count == 0 || count < options.count)) {
    const std::int64_t now = platform::MonotonicMilliseconds();
    if (now >= endMs) {
      return;
    }
    AwaitData(connection, std::min(now + LOOK_EVERY_MS, endMs), onData);
  }
}

ExitCode RunListen(const ListenOptions& options) {
  PrepareFiles(options);
  int count = 0;
  const DataHandler onData = [&](const HostData& data) {
    ++count;
    PrintData(options.request.json, count, data, SaveData(options, count, data.bytes));
  };
  const OpenConnection connection = Connect(OpenLink(options.request));
  tools::WatchForInterrupt();
  std::string uid;
  const ExitCode startCode =
      SendRequest(connection.get(), options.request, EXCHANGE_START, {}, onData, &uid);
  if (startCode != EXIT_OK) {
    return startCode;
  }
  ListenUntilEnd(connection.get(), options, count, onData);
  const ExitCode endCode = SendEnd(connection.get(), options.request, uid, onData);
  if (endCode != EXIT_OK) {
    return endCode;
  }
  if (count < options.count) {
    throw Failure(EXIT_TIMED_OUT, "only " + std::to_string(count) + " of " +
                                      std::to_string(options.count) + " pieces of data came");
  }
  if (count == 0) {
    throw Failure(EXIT_NOTHING_THERE, "the host sent no data");
  }
  return EXIT_OK;
}

}  // namespace

void AddListen(tools::CommandLine* program, Command* chosen) {
  const auto options = std::make_shared<ListenOptions>();
  tools::CommandLine* command = tools::AddCommand(
      program, "listen", DESCRIPTION, std::string(EXAMPLES) + EXIT_CODES_HELP, [options, chosen] {
        CheckRequestOptions(options->request);
        chosen->json = options->request.json;
        chosen->run = [options] { return RunListen(*options); };
      });
  tools::AddNumber(command, {"--for", "SECONDS", "Listen for this time"}, &options->seconds, 0.001,
                   1'000'000.0);
  tools::AddNumber(command, {"--count", "N", "Listen until so many pieces of data came"},
                   &options->count, 1, 1'000'000);
  CLI::Option* save = tools::AddText(
      command, {"--save", "DIR", "Save each piece in a file in this folder"}, &options->saveFolder);
  tools::Exclude(
      tools::AddText(command, {"--output", "FILE", "Save all data, in order, in this file"},
                     &options->outputFile),
      save);
  AddRequestOptions(command, &options->request);
  AddConnectionOptions(command, &options->request);
}

}  // namespace zvqrn::scanner
