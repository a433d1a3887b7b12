#include <algorithm>
#include <cstdio>
#include <memory>

#include "common/adapters.h"
#include "common/json_lines.h"
#include "common/machine_text.h"
#include "common/output.h"
#include "common/text.h"
#include "scanner/command/commands.h"
#include "scanner/explain/account.h"

namespace zvqrn::scanner {

namespace {

struct ExplainOptions {
  std::string file;
  std::string pcAddress;
  std::uint16_t port = 2968;
  bool datagram = false;
  bool brief = false;
  bool rules = false;
  bool json = false;
};

constexpr char DESCRIPTION[] =
    "Says what the library does with captured messages, and by which rule";

constexpr char EXAMPLES[] =
    "FILE is a capture (pcap or pcapng, of the traffic on port 2968), or the bytes of event messages\n"
    "or of one datagram; '-' is standard input.  Of each message of a scanner it says what becomes of\n"
    "it and the first rule that decides; the rules have names that stay (--rules, and\n"
    "docs/protocol.md).  In a capture the connection counts too: whether it was the one that is\n"
    "served, which STARTs were open, where a pause cut a message, what the PC answered and how soon.\n"
    "What a file of bytes cannot tell is taken for good.\n"
    "\n"
    "Captures are read by this program itself, without libpcap, on every system.  Pieces of IP packets\n"
    "are not put together.\n"
    "\n"
    "Examples:\n"
    "  quorin-scanner explain scan.pcapng\n"
    "  quorin-scanner explain --brief scan.pcapng     a line a message\n"
    "  quorin-scanner explain --json message.bin\n"
    "  tshark -i any -f 'port 2968' -w - | quorin-scanner explain -\n"
    "                                                 until Ctrl-C ends tshark\n"
    "\n"
    "Exit codes: 0 nothing was wrong; 1 the file cannot be read; 2 wrong command line; 3 nothing of\n"
    "these protocols is in it; 4 something was refused, dropped, closed or ignored; 5 an answer was\n"
    "due and is not there; 6 it is no capture that can be read, or the PC did otherwise than this\n"
    "library.";

constexpr std::size_t SHOWN_OF_A_VALUE = 200;

std::string Place(const platform::Endpoint& endpoint) {
  return tools::AddressText(endpoint.address) + ":" + std::to_string(endpoint.port);
}

std::string Seconds(std::int64_t microseconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.6f", static_cast<double>(microseconds) / 1e6);
  return text;
}

std::string Milliseconds(std::int64_t microseconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f ms", static_cast<double>(microseconds) / 1e3);
  return text;
}

std::string Hex(std::size_t number) {
  char text[24];
  std::snprintf(text, sizeof text, "%04zX", number);
  return text;
}

const char* KindWord(ItemKind kind) {
  constexpr const char* WORDS[] = {"request", "answer", "data", "connection", "search", "reply"};
  return WORDS[kind];
}

// ---- JSON ----------------------------------------------------------------------------------------

std::vector<tools::JsonObject> FieldObjects(const Item& item) {
  std::vector<tools::JsonObject> objects;
  for (const Field& field : item.fields) {
    objects.push_back({{"offset", field.offset},
                       {"size", field.size},
                       {"name", tools::JsonText(field.name)},
                       {"value", tools::JsonText(field.value)}});
  }
  return objects;
}

void PrintItemJson(const std::vector<Item>& items, std::size_t number) {
  const Item& item = items[number];
  tools::JsonObject object = {{"event", "message"}, {"kind", KindWord(item.kind)}};
  if (item.frame > 0) {
    object["frame"] = item.frame;
    object["time"] = static_cast<double>(item.timeUs) / 1e6;
    object["from"] = Place(item.from);
    object["to"] = Place(item.to);
  }
  object["uid"] = tools::JsonText(item.uid);
  object["size"] = item.size;
  if (item.hasRule) {
    const Rule& rule = RuleOf(item.rule);
    object["rule"] = rule.name;
    object["outcome"] = OutcomeWord(OutcomeOf(item));
    object["status"] = rule.status;
    object["text"] = rule.sentence;
    object["detail"] = tools::JsonText(item.detail);
  } else if (item.kind == ITEM_ANSWER) {
    object["status"] = tools::JsonText(item.status);
    object["statusOut"] = tools::JsonText(item.statusOut);
  }
  if (item.partner != NO_ITEM) {
    const Item& partner = items[item.partner];
    object[item.kind == ITEM_REQUEST ? "answerFrame" : "requestFrame"] = partner.frame;
    object["milliseconds"] = static_cast<double>(std::abs(partner.timeUs - item.timeUs)) / 1e3;
  }
  if (item.start != NO_ITEM) {
    object["startFrame"] = items[item.start].frame;
  }
  if (item.kind == ITEM_SEARCH) {
    object["replies"] = item.others.size();
  }
  object["fields"] = FieldObjects(item);
  tools::PrintJsonLine(object);
}

// ---- Prose ---------------------------------------------------------------------------------------

std::string Links(const std::vector<Item>& items, const Item& item) {
  const auto frame = [&](std::size_t other) { return std::to_string(items[other].frame); };
  std::string text;
  if (item.partner != NO_ITEM && item.frame > 0) {
    const std::string time = Milliseconds(std::abs(items[item.partner].timeUs - item.timeUs));
    text += item.kind == ITEM_REQUEST ? "answered in frame " + frame(item.partner) + " after " +
                                            time + ": " + items[item.partner].title
                                      : "to frame " + frame(item.partner) + ", after " + time;
  }
  if (item.start != NO_ITEM) {
    text += (text.empty() ? "" : "; ") + std::string("its START is frame ") + frame(item.start);
  }
  if (!item.others.empty()) {
    text += std::to_string(item.others.size()) + " replies, the first in frame " +
            frame(item.others.front()) + " after " +
            Milliseconds(items[item.others.front()].timeUs - item.timeUs);
  }
  return text;
}

std::string FieldLines(const Item& item) {
  std::string text;
  for (const Field& field : item.fields) {
    const std::string name = tools::EscapeBytes(field.name);
    std::string value = tools::EscapeBytes(field.value);
    if (value.size() > SHOWN_OF_A_VALUE) {
      value = value.substr(0, SHOWN_OF_A_VALUE) + "...";
    }
    text += "\n    " + Hex(item.offset + field.offset) + "  ";
    text += name + std::string(name.size() < 24 ? 24 - name.size() : 1, ' ');
    text += value;
  }
  return text;
}

void PrintItem(const std::vector<Item>& items, std::size_t number, bool brief) {
  const Item& item = items[number];
  std::string text;
  if (item.frame > 0) {
    text = "frame " + std::to_string(item.frame) + "  " +
           Seconds(item.timeUs - items.front().timeUs) + " s  " + Place(item.from) + " > " +
           Place(item.to) + "  ";
  }
  text += item.title + (item.size > 0 ? ", " + std::to_string(item.size) + " bytes" : "");
  if (item.hasRule) {
    const Rule& rule = RuleOf(item.rule);
    text += brief ? "  [" : "\n    ";
    text += OutcomeText(rule, OutcomeOf(item)) + " by the rule " + rule.name + ": " + rule.sentence;
    text += item.detail.empty() ? "" : " (" + tools::EscapeBytes(item.detail) + ")";
    text += brief ? "]" : "";
  }
  if (!brief) {
    const std::string links = Links(items, item);
    text += links.empty() ? "" : "\n    " + links;
    text += FieldLines(item);
  }
  tools::PrintLine(text);
}

// ---- The whole -----------------------------------------------------------------------------------

struct Totals {
  int judged = 0;
  int wrong = 0;
  int unanswered = 0;
  int unexpected = 0;
};

Totals Count(const std::vector<Item>& items) {
  Totals totals;
  for (const Item& item : items) {
    if (item.hasRule) {
      const Outcome outcome = OutcomeOf(item);
      // Responses are dropped by right: a scanner sends one for each piece of data.
      const bool isFine =
          outcome == OUTCOME_ACCEPTED || (item.rule == RULE_RESPONSE && outcome == OUTCOME_DROPPED);
      ++totals.judged;
      totals.unexpected += outcome == OUTCOME_UNEXPECTED ? 1 : 0;
      totals.unanswered += outcome == OUTCOME_UNANSWERED ? 1 : 0;
      totals.wrong +=
          !isFine && outcome != OUTCOME_UNEXPECTED && outcome != OUTCOME_UNANSWERED ? 1 : 0;
    }
  }
  return totals;
}

ExitCode JudgeTotals(const std::vector<Item>& items, const Totals& totals) {
  if (items.empty()) {
    return EXIT_NOTHING_THERE;
  }
  if (totals.unexpected > 0) {
    return EXIT_PROTOCOL_ERROR;
  }
  if (totals.wrong > 0) {
    return EXIT_REFUSED;
  }
  return totals.unanswered > 0 ? EXIT_TIMED_OUT : EXIT_OK;
}

void PrintSummary(const ExplainOptions& options, const std::vector<Item>& items,
                  const Capture& capture) {
  const Totals totals = Count(items);
  const ExitCode exitCode = JudgeTotals(items, totals);
  if (options.json) {
    tools::PrintJsonLine({{"event", "summary"},
                          {"frames", capture.frames},
                          {"fragments", capture.fragments},
                          {"partial", capture.partial},
                          {"cutShort", capture.cutShort},
                          {"judged", totals.judged},
                          {"wrong", totals.wrong},
                          {"unanswered", totals.unanswered},
                          {"unexpected", totals.unexpected},
                          {"exitCode", static_cast<int>(exitCode)}});
    return;
  }
  std::string text = std::to_string(totals.judged) + " judged: " + std::to_string(totals.wrong) +
                     " refused, dropped, closed or ignored; " + std::to_string(totals.unanswered) +
                     " unanswered; " + std::to_string(totals.unexpected) + " unexpected";
  if (capture.fragments > 0) {
    text += "; " + std::to_string(capture.fragments) + " pieces of IP packets were left out";
  }
  if (capture.partial > 0) {
    text += "; of " + std::to_string(capture.partial) +
            " frames only the beginning was captured, so do not trust what is said of them";
  }
  text += capture.cutShort ? "; the file ends inside a frame" : "";
  tools::PrintLine(text);
}

ExitCode PrintRules(bool json) {
  for (int id = 0; id < RULE_COUNT; ++id) {
    const Rule& rule = RuleOf(static_cast<RuleId>(id));
    if (json) {
      tools::PrintJsonLine({{"event", "rule"},
                            {"rule", rule.name},
                            {"outcome", OutcomeWord(rule.outcome)},
                            {"status", rule.status},
                            {"text", rule.sentence}});
    } else {
      tools::PrintLine(std::string(rule.name) + " | " + OutcomeText(rule, rule.outcome) + " | " +
                       rule.sentence);
    }
  }
  return EXIT_OK;
}

ExitCode RunExplain(const ExplainOptions& options) {
  if (options.rules) {
    return PrintRules(options.json);
  }
  std::string bytes;
  const bool read = options.file == "-" ? tools::ReadStandardInput(&bytes)
                                        : tools::ReadFileBytes(options.file, &bytes);
  if (!read) {
    throw Failure(EXIT_LOCAL_TROUBLE, "cannot read '" + options.file + "'");
  }
  Surroundings surroundings;
  surroundings.port = options.port;
  surroundings.takesDatagram = options.datagram;
  platform::TextToAddress(options.pcAddress.c_str(), &surroundings.pcAddress);
  Capture capture;
  std::string why;
  std::vector<Item> items;
  if (LooksLikeCapture(bytes)) {
    if (!ReadCapture(bytes, &capture, &why)) {
      throw Failure(EXIT_PROTOCOL_ERROR, "'" + options.file + "': " + why);
    }
    items = ExplainCapture(capture, surroundings);
  } else if (!bytes.empty()) {
    items = ExplainBytes(bytes, surroundings);
  }
  for (std::size_t i = 0; i < items.size() && !tools::OutputFailed(); ++i) {
    if (options.json) {
      PrintItemJson(items, i);
    } else {
      PrintItem(items, i, options.brief);
    }
  }
  PrintSummary(options, items, capture);
  return JudgeTotals(items, Count(items));
}

}  // namespace

void AddExplain(tools::CommandLine* program, Command* chosen) {
  const auto options = std::make_shared<ExplainOptions>();
  tools::CommandLine* command =
      tools::AddCommand(program, "explain", DESCRIPTION, EXAMPLES, [options, chosen] {
        if (options->file.empty() && !options->rules) {
          tools::RefuseCommandLine("FILE is missing: a capture, or the bytes of a message");
        }
        if (!options->file.empty() && options->rules) {
          tools::RefuseCommandLine("--rules reads no FILE, and '" + options->file + "' was given");
        }
        chosen->json = options->json;
        chosen->run = [options] { return RunExplain(*options); };
      });
  const auto checkAddress = [](const std::string& text) {
    std::uint32_t address = 0;
    const bool good = platform::TextToAddress(text.c_str(), &address);
    return good ? std::string() : "'" + text + "' is no IPv4 address such as 192.0.2.1";
  };
  tools::AddArgument(command, {"file", "FILE", "A capture, or the bytes of a message or datagram"},
                     &options->file);
  tools::AddText(
      command,
      {"--address", "ADDR", "The PC's address, for lists of previous responders (default: learnt)"},
      &options->pcAddress, checkAddress);
  tools::AddNumber(command, {"--port", "PORT", "The PC's port", "Options", tools::SHOW_DEFAULT},
                   &options->port, 1, 65535);
  tools::AddFlag(command,
                 {"--datagram", nullptr, "FILE is a datagram, though it begins like a message"},
                 &options->datagram);
  tools::AddFlag(command, {"--brief", nullptr, "A line a message, without its fields"},
                 &options->brief);
  tools::AddFlag(command, {"--rules", nullptr, "List the rules: name, outcome, sentence"},
                 &options->rules);
  tools::AddFlag(command, {"--json", nullptr, "Print one JSON object a line"}, &options->json);
}

}  // namespace zvqrn::scanner
