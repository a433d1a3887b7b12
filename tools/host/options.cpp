#include "host/options.h"

#include "common/command_line.h"
#include "common/machine_text.h"
#include "common/module_loader.h"
#include "common/text.h"
#include "common/vocabulary.h"
#include "host/service_library.h"

namespace zvqrn::host {

namespace {

constexpr std::int32_t MILLISECONDS_LIMIT = 3'600'000;
constexpr std::size_t PC_NAME_LIMIT = 15;

constexpr char DESCRIPTION[] =
    "Loads ZVQRN as a host program does, starts its service, prints every push-scan request that a\n"
    "scanner sends to this PC, and answers it.";

constexpr char FOOTER[] =
    "Answer codes (number or word): 1 OK, 2 PARAM_ERR, 3 PARSE_ERR, 5 PM_EXECUTE_ERR,\n"
    "6 PM_NOT_INSTALL, 7 TWAIN_NOT_INSTALL, 8 ERROR, 9 BUSY (declines the request).\n"
    "\n"
    "Examples:\n"
    "  quorin-host                              print and accept requests until Ctrl-C\n"
    "  quorin-host --answer BUSY --requests 1   decline the next request and end\n"
    "  quorin-host --send 'ready' --send-file page.bin\n"
    "                                           send two messages to every START\n"
    "  quorin-host --json --for 60              a minute's requests, one JSON object a line;\n"
    "                                           its texts have one character (U+00HH) for a byte\n"
    "\n"
    "Exit codes: 0 ended as asked; 1 the PC name was not taken, or the service did not stop;\n"
    "2 wrong command line; 3 library not found or unusable; 4 the service did not start.";

std::int32_t AnswerCode(const std::string& text) {
  if (tools::EqualsIgnoringCase(text, tools::BUSY_ANSWER.text)) {
    return tools::BUSY_ANSWER.number;
  }
  if (const tools::Word* word = tools::FindWord(tools::STATUS_OUT_WORDS, text)) {
    return word->number;
  }
  std::int32_t code = 0;
  if (!tools::ParseNumber(text, &code)) {
    tools::RefuseCommandLine("'" + text + "' is neither a number nor a word for an answer");
  }
  return code;
}

// Gives a text for the library; refuses the command line when its code page lacks a letter.
std::string LibraryText(const std::string& option, const std::string& text) {
  std::string bytes;
  if (!tools::ToLibraryText(text, &bytes)) {
    tools::RefuseCommandLine(option + ": '" + text + "' has letters beyond this PC's code page");
  }
  return bytes;
}

void AddAnswerOf(HostOptions* options, const std::string& text) {
  const std::size_t equals = text.rfind('=');
  if (equals == std::string::npos || equals == 0) {
    tools::RefuseCommandLine("--answer-for: '" + text + "' is not \"DRIVER NAME=CODE\"");
  }
  options->answerOf[LibraryText("--answer-for", text.substr(0, equals))] =
      AnswerCode(text.substr(equals + 1));
}

void AddSend(HostOptions* options, const std::string& bytes, const std::string& source) {
  if (bytes.empty()) {
    tools::RefuseCommandLine(source + ": there is nothing to send");
  }
  options->sends.push_back(bytes);
}

void AddSendFile(HostOptions* options, const std::string& path) {
  std::string bytes;
  if (!tools::ReadFileBytes(path, &bytes)) {
    tools::RefuseCommandLine("--send-file: cannot read '" + path + "'");
  }
  AddSend(options, bytes, "--send-file " + path);
}

SendTo SendToOf(const std::string& text) {
  if (text == "start") {
    return SEND_TO_START;
  }
  if (text == "single") {
    return SEND_TO_SINGLE;
  }
  if (text == "all") {
    return SEND_TO_ALL;
  }
  tools::RefuseCommandLine("--send-to: '" + text + "' is none of start, single and all");
}

void CheckPcName(std::string* name) {
  *name = LibraryText("--name", *name);
  if (name->empty() || name->size() > PC_NAME_LIMIT) {
    tools::RefuseCommandLine("--name: a PC name has 1 to 15 bytes");
  }
}

// Who asks another program decides nothing alone.
void CheckAsking(HostOptions* options) {
  const bool decides = options->answerGiven || !options->answerOf.empty() || options->delayMs > 0 ||
                       options->filterDelayMs > 0 || options->ignoresPeers ||
                       !options->sends.empty();
  if (options->asks && decides) {
    tools::RefuseCommandLine(
        "--ask leaves answers, data and the word on scanners to the other program; no option for them "
        "can stand beside it");
  }
  options->json = options->json || options->asks;
}

std::string VersionText(const HostOptions& options) {
  const std::string path = LibraryPath(options);
  const std::string version = tools::ModuleVersion(path);
  return "quorin-host " QUORIN_VERSION "\nlibrary " + (version.empty() ? "unknown" : version) +
         " (" + path + ")";
}

void AddAnswerOptions(tools::CommandLine* line, HostOptions* options) {
  tools::AddTextAction(line, {"--answer", "CODE", "Answer to every request (default 1, OK)"},
                       [=](const std::string& text) {
                         options->answer = AnswerCode(text);
                         options->answerGiven = true;
                       });
  tools::AddRepeatable(line,
                       {"--answer-for", "\"DRIVER NAME=CODE\"",
                        "Answer to requests of the scanners that this driver serves; repeatable"},
                       [=](const std::string& text) { AddAnswerOf(options, text); });
  tools::AddNumber(line, {"--delay", "MS", "Time before each answer, in milliseconds"},
                   &options->delayMs, 0, MILLISECONDS_LIMIT);
}

void AddSendOptions(tools::CommandLine* line, HostOptions* options) {
  tools::AddInOrder(line,
                    {"--send", "TEXT", "Send this text to the scanner of each START; repeatable"},
                    [=](const std::string& text) { AddSend(options, text, "--send"); });
  tools::AddInOrder(line, {"--send-file", "FILE", "Send the bytes of this file; repeatable"},
                    [=](const std::string& path) { AddSendFile(options, path); });
  tools::AddTextAction(
      line, {"--send-to", "start|single|all", "Requests that get the data (default start)"},
      [=](const std::string& text) { options->sendTo = SendToOf(text); });
  tools::AddNumber(
      line,
      {"--send-after", "MS",
       "Send the data this time after the callback has returned, not inside it; by then a single request is closed, a START is not"},
      &options->sendAfterMs, 0, MILLISECONDS_LIMIT);
}

// Gives the option of the PC's name.
CLI::Option* AddOptions(tools::CommandLine* line, HostOptions* options) {
  tools::AddText(
      line, {"--library", "PATH", "The library to load (default: the one beside this program)"},
      &options->libraryPath);
  CLI::Option* name = tools::AddText(
      line, {"--name", "NAME", "Name under which scanners list this PC"}, &options->pcName);
  tools::AddFlag(line, {"--json", nullptr, "Print one JSON object a line"}, &options->json);
  tools::AddFlag(
      line,
      {"--ignore-scanners", nullptr, "Decline every scanner that looks for this PC by its product"},
      &options->ignoresPeers);
  tools::AddNumber(
      line, {"--filter-delay", "MS", "Time before the word on such a scanner, in milliseconds"},
      &options->filterDelayMs, 0, MILLISECONDS_LIMIT);
  AddAnswerOptions(line, options);
  AddSendOptions(line, options);
  tools::AddFlag(
      line,
      {"--ask", nullptr,
       "Ask the program that started this one: questions on standard output, its words on standard input, a JSON object a line (docs/ask.md)"},
      &options->asks);
  tools::AddNumber(
      line,
      {"--ask-timeout", "MS", "With --ask: longest wait for a word, then BUSY (default 60000)"},
      &options->askTimeoutMs, 1, MILLISECONDS_LIMIT);
  tools::AddNumber(line, {"--requests", "N", "End after this many requests were answered"},
                   &options->requests, 1, 1'000'000);
  tools::AddNumber(line, {"--for", "SECONDS", "End after this time"}, &options->seconds, 0.001,
                   1'000'000.0);
  tools::AddNumber(
      line,
      {"--restart-every", "SECONDS",
       "Stop the service so often and start it again, to see what that does to scanners"},
      &options->restartSeconds, 0.1, 1'000'000.0);
  return name;
}

}  // namespace

const char* AnswerWord(std::int32_t code) {
  if (code == tools::BUSY_ANSWER.number) {
    return tools::BUSY_ANSWER.text;
  }
  const tools::Word* word = tools::FindWord(tools::STATUS_OUT_WORDS, code);
  return word == nullptr ? "ERROR" : word->text;
}

bool ReadOptions(const std::vector<std::string>& arguments, HostOptions* options, int* exitCode) {
  CLI::Option* name = nullptr;
  const auto addOptions = [&](tools::CommandLine* line) { name = AddOptions(line, options); };
  const auto check = [&] {
    if (tools::WasGiven(name)) {
      CheckPcName(&options->pcName);
    }
    CheckAsking(options);
  };
  const auto version = [&] { return VersionText(*options); };
  return tools::ReadCommandLine(arguments, {"quorin-host", DESCRIPTION, FOOTER, version},
                                addOptions, check, exitCode);
}

}  // namespace zvqrn::host
