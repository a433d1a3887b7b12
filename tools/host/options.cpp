#include "host/options.h"

#include <CLI/CLI.hpp>

#include "common/text.h"
#include "host/exit_codes.h"
#include "zvqrn/zvqrn.h"

namespace zvqrn::host {

namespace {

struct AnswerName {
  const char* word;
  std::int32_t code;
};

constexpr AnswerName ANSWERS[] = {
    {"OK", QRN_RESPONSE_OK},
    {"PARAM_ERR", QRN_RESPONSE_PARAM_ERR},
    {"PARSE_ERR", QRN_RESPONSE_PARSE_ERR},
    {"PM_EXECUTE_ERR", QRN_RESPONSE_PM_EXECUTE_ERR},
    {"PM_NOT_INSTALL", QRN_RESPONSE_PM_NOT_INSTALL},
    {"TWAIN_NOT_INSTALL", QRN_RESPONSE_TWAIN_NOT_INSTALL},
    {"ERROR", QRN_RESPONSE_ERROR},
    {"BUSY", QRN_RESPONSE_BUSY},
};

constexpr std::int32_t MILLISECONDS_LIMIT = 3'600'000;
constexpr std::size_t PC_NAME_LIMIT = 15;

constexpr char DESCRIPTION[] =
    "Loads ZVQRN as a host program does, starts its service, prints every push-scan request that "
    "a\n"
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
  for (const AnswerName& answer : ANSWERS) {
    if (tools::EqualsIgnoringCase(text, answer.word)) {
      return answer.code;
    }
  }
  std::int32_t code = 0;
  if (!tools::ParseNumber(text, &code)) {
    throw CLI::ValidationError("'" + text + "' is neither a number nor a word for an answer");
  }
  return code;
}

void AddAnswerOf(HostOptions* options, const std::string& text) {
  const std::size_t equals = text.rfind('=');
  if (equals == std::string::npos || equals == 0) {
    throw CLI::ValidationError("--answer-for: '" + text + "' is not \"DRIVER NAME=CODE\"");
  }
  options->answerOf[text.substr(0, equals)] = AnswerCode(text.substr(equals + 1));
}

void AddSend(HostOptions* options, const std::string& bytes, const std::string& source) {
  if (bytes.empty()) {
    throw CLI::ValidationError(source + ": there is nothing to send");
  }
  options->sends.push_back(bytes);
}

void AddSendFile(HostOptions* options, const std::string& path) {
  std::string bytes;
  if (!tools::ReadFileBytes(path, &bytes)) {
    throw CLI::ValidationError("--send-file: cannot read '" + path + "'");
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
  throw CLI::ValidationError("--send-to: '" + text + "' is none of start, single and all");
}

void CheckPcName(const std::string& name) {
  if (name.empty() || name.size() > PC_NAME_LIMIT) {
    throw CLI::ValidationError("--name: a PC name has 1 to 15 bytes");
  }
}

void AddAnswerOptions(CLI::App* app, HostOptions* options) {
  app->add_option_function<std::string>(
         "--answer", [=](const std::string& text) { options->answer = AnswerCode(text); },
         "Answer to every request (default 1, OK)")
      ->type_name("CODE");
  app->add_option_function<std::vector<std::string>>(
         "--answer-for",
         [=](const std::vector<std::string>& texts) {
           for (const std::string& text : texts) {
             AddAnswerOf(options, text);
           }
         },
         "Answer to requests of the scanners that this driver serves; repeatable")
      ->type_name("\"DRIVER NAME=CODE\"")
      ->allow_extra_args(false);
  app->add_option("--delay", options->delayMs, "Time before each answer, in milliseconds")
      ->type_name("MS")
      ->check(CLI::Range(0, MILLISECONDS_LIMIT).description(""));
}

void AddSendOptions(CLI::App* app, HostOptions* options) {
  // Taken as they stand on the command line, so that texts and files keep their common order.
  app->add_option_function<std::string>(
         "--send", [=](const std::string& text) { AddSend(options, text, "--send"); },
         "Send this text to the scanner of each START; repeatable")
      ->type_name("TEXT")
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
      ->trigger_on_parse();
  app->add_option_function<std::string>(
         "--send-file", [=](const std::string& path) { AddSendFile(options, path); },
         "Send the bytes of this file; repeatable")
      ->type_name("FILE")
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
      ->trigger_on_parse();
  app->add_option_function<std::string>(
         "--send-to", [=](const std::string& text) { options->sendTo = SendToOf(text); },
         "Requests that get the data (default start)")
      ->type_name("start|single|all");
  app->add_option("--send-after", options->sendAfterMs,
                  "Send the data this time after the callback has returned, not inside it; by then "
                  "a single request is closed, a START is not")
      ->type_name("MS")
      ->check(CLI::Range(0, MILLISECONDS_LIMIT).description(""));
}

}  // namespace

const char* AnswerWord(std::int32_t code) {
  for (const AnswerName& answer : ANSWERS) {
    if (answer.code == code) {
      return answer.word;
    }
  }
  return "ERROR";
}

bool ReadOptions(int argc, char** argv, HostOptions* options, int* exitCode) {
  CLI::App app(DESCRIPTION, "quorin-host");
  app.footer(FOOTER);
  app.add_option("--library", options->libraryPath,
                 "The library to load (default: the one beside this program)")
      ->type_name("PATH");
  app.add_option("--name", options->pcName, "Name under which scanners list this PC")
      ->type_name("NAME");
  app.add_flag("--json", options->json, "Print one JSON object a line");
  AddAnswerOptions(&app, options);
  AddSendOptions(&app, options);
  app.add_option("--requests", options->requests, "End after this many requests were answered")
      ->type_name("N")
      ->check(CLI::Range(1, 1'000'000).description(""));
  app.add_option("--for", options->seconds, "End after this time")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.001, 1'000'000.0).description(""));
  app.add_option("--restart-every", options->restartSeconds,
                 "Stop the service so often and start it again, to see what that does to scanners")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.1, 1'000'000.0).description(""));
  try {
    app.parse(argc, argv);
    if (app.count("--name") > 0) {
      CheckPcName(options->pcName);
    }
  } catch (const CLI::ParseError& error) {
    *exitCode = app.exit(error) == 0 ? EXIT_OK : EXIT_USAGE;
    return false;
  }
  return true;
}

}  // namespace zvqrn::host
