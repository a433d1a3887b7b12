#include <algorithm>
#include <memory>
#include <vector>

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

enum PushMode { PUSH_SINGLE, PUSH_PAIR, PUSH_START, PUSH_END, PUSH_RAW };

struct PushOptions {
  RequestOptions request;
  PushMode mode = PUSH_SINGLE;
  std::string parentUid;
  std::int32_t holdMs = 1000;
  std::int32_t repeat = 1;
  std::string rawBytes;
};

constexpr char DESCRIPTION[] = "Sends a push-scan request to a PC and shows what comes back";

constexpr char EXAMPLES[] =
    "A START lives only as long as its connection: --start alone ends it as soon as the answer\n"
    "is there, and --end alone can but be refused; --pair sends both on one connection.\n"
    "\n"
    "Examples:\n"
    "  quorin-scanner push --to 192.0.2.7\n"
    "  quorin-scanner push --to 192.0.2.7 --protocol 2 --id 3 --product XS-300\n"
    "  quorin-scanner push --pair --hold 5000       START, 5 s for the host's data, END\n"
    "  quorin-scanner push --version-text 3.00      a version that no PC supports\n"
    "  quorin-scanner push --cut 1 --pause 5        byte by byte\n"
    "  quorin-scanner push --without x-uid --timeout 2000\n"
    "  quorin-scanner push --raw-file captured.bin --trace\n"
    "\n";

// Keeps the first thing that went wrong in a row of exchanges.
void Note(ExitCode* first, ExitCode next) {
  if (*first == EXIT_OK) {
    *first = next;
  }
}

ExitCode PushPair(Connection* connection, const PushOptions& options, const DataHandler& onData) {
  std::string uid;
  const ExitCode startCode =
      SendRequest(connection, options.request, EXCHANGE_START, {}, onData, &uid);
  if (startCode != EXIT_OK) {
    return startCode;
  }
  const std::int64_t deadlineMs = platform::MonotonicMilliseconds() + options.holdMs;
  while (AwaitData(connection, deadlineMs, onData)) {
  }
  return SendEnd(connection, options.request, uid, onData);
}

ExitCode PushRaw(Connection* connection, const PushOptions& options, const DataHandler& onData) {
  Send(connection, options.rawBytes);
  const Answer answer = AwaitAnswer(connection, {}, onData);
  PrintAnswer(options.request.json, "raw", answer);
  return JudgeAnswer(answer);
}

ExitCode PushOnce(Connection* connection, const PushOptions& options, const DataHandler& onData) {
  const RequestOptions& request = options.request;
  std::string uid;
  switch (options.mode) {
    case PUSH_PAIR:
      return PushPair(connection, options, onData);
    case PUSH_RAW:
      return PushRaw(connection, options, onData);
    case PUSH_START:
      return SendRequest(connection, request, EXCHANGE_START, {}, onData, &uid);
    case PUSH_END:
      return SendRequest(connection, request, EXCHANGE_END, options.parentUid, onData, &uid);
    default:
      return SendRequest(connection, request, EXCHANGE_OF_ONE, {}, onData, &uid);
  }
}

ExitCode RunPush(const PushOptions& options) {
  int dataCount = 0;
  const DataHandler onData = [&](const HostData& data) {
    PrintData(options.request.json, ++dataCount, data, {});
  };
  const OpenConnection connection = Connect(OpenLink(options.request));
  ExitCode exitCode = EXIT_OK;
  for (std::int32_t i = 0; i < options.repeat && !tools::OutputFailed(); ++i) {
    Note(&exitCode, PushOnce(connection.get(), options, onData));
  }
  return exitCode;
}

// Gives the options that name a mode; at most one of them can be used.
std::vector<CLI::Option*> AddModes(tools::CommandLine* command,
                                   const std::shared_ptr<PushOptions>& options) {
  const char* group = "Exchange (one of)";
  std::vector<CLI::Option*> modes;
  const auto addFlag = [&](const char* name, PushMode mode, const char* text) {
    modes.push_back(
        tools::AddFlagAction(command, {name, nullptr, text, group}, [=] { options->mode = mode; }));
  };
  addFlag("--single", PUSH_SINGLE, "A request that stands alone (default)");
  addFlag("--pair", PUSH_PAIR, "A START, the host's data for a time (--hold), its END");
  addFlag("--start", PUSH_START, "A START only");
  addFlag("--end", PUSH_END, "An END only, of the START that --parent-uid names");
  const auto readRawFile = [options](const std::string& path) {
    options->mode = PUSH_RAW;
    if (!tools::ReadFileBytes(path, &options->rawBytes) || options->rawBytes.empty()) {
      tools::RefuseCommandLine("--raw-file: '" + path + "' cannot be read or is empty");
    }
  };
  modes.push_back(tools::AddTextAction(
      command, {"--raw-file", "FILE", "Send the bytes of this file as they are", group},
      readRawFile));
  tools::AddText(command, {"--parent-uid", "UID", "With --end: the uid of its START", group},
                 &options->parentUid);
  tools::AddNumber(
      command,
      {"--hold", "MS", "With --pair: time between START and END", group, tools::SHOW_DEFAULT},
      &options->holdMs, 0, 3'600'000);
  return modes;
}

void CheckModes(const PushOptions& options, const std::vector<CLI::Option*>& modes) {
  if (std::count_if(modes.begin(), modes.end(), tools::WasGiven) > 1) {
    tools::RefuseCommandLine("only one of --single, --pair, --start, --end and --raw-file");
  }
  if (options.parentUid.empty() == (options.mode == PUSH_END)) {
    tools::RefuseCommandLine("--end and --parent-uid belong together");
  }
}

}  // namespace

void AddPush(tools::CommandLine* program, Command* chosen) {
  const auto options = std::make_shared<PushOptions>();
  const auto modes = std::make_shared<std::vector<CLI::Option*>>();
  tools::CommandLine* command =
      tools::AddCommand(program, "push", DESCRIPTION, std::string(EXAMPLES) + EXIT_CODES_HELP,
                        [options, modes, chosen] {
                          CheckRequestOptions(options->request);
                          CheckModes(*options, *modes);
                          chosen->json = options->request.json;
                          chosen->run = [options] { return RunPush(*options); };
                        });
  *modes = AddModes(command, options);
  tools::AddNumber(
      command,
      {"--repeat", "N", "Do it this many times on one connection", "Options", tools::SHOW_DEFAULT},
      &options->repeat, 1, 1'000'000);
  AddRequestOptions(command, &options->request);
  AddConnectionOptions(command, &options->request);
}

}  // namespace zvqrn::scanner
