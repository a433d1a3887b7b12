#include "scanner/exchange/request_options.h"

#include <atomic>
#include <utility>

#include "common/text.h"
#include "common/vocabulary.h"
#include "platform/clock.h"

namespace zvqrn::scanner {

namespace {

constexpr std::int32_t MILLISECONDS_LIMIT = 3'600'000;

void AddHeaderLine(Headers* headers, const std::string& text) {
  const std::size_t colon = text.find(':');
  const std::string name = tools::TrimBlanks(text.substr(0, colon));
  if (colon == std::string::npos || name.empty()) {
    tools::RefuseCommandLine("'" + text + "' is not \"Name: value\"");
  }
  headers->emplace_back(name, tools::TrimBlanks(text.substr(colon + 1)));
}

void AddFieldOptions(tools::CommandLine* command, RequestOptions* options) {
  const char* group = "Request";
  const std::string imageFormats = tools::ListWords(tools::IMAGE_FORMATS, "|");
  const std::string colorTypes = tools::ListWords(tools::COLOR_TYPES, "|");
  const std::string loadPapers = tools::ListWords(tools::LOAD_PAPERS, "|");
  const std::string paperTypes = "Version 1: " + tools::ListWords(tools::PAPER_TYPES, ", ");
  PushScanFields* fields = &options->fields;
  const auto add = [&](const char* name, std::string* value, const char* type, const char* text) {
    tools::AddText(command, {name, type, text, group, tools::SHOW_DEFAULT}, value);
  };
  tools::AddNumber(
      command,
      {"--protocol", "1|2", "1: scan settings, 2: a push-scan ID", group, tools::SHOW_DEFAULT},
      &options->protocol, 1, 2);
  add("--uid", &options->uid, "UID", "The request's uid (default: a fresh one)");
  add("--product", &fields->productName, "NAME", "The scanner's product name");
  add("--ip", &fields->ipAddress, "TEXT", "The scanner's address as it states it");
  add("--id", &fields->pushScanId, "1|2|3", "Version 2: the push-scan ID");
  add("--image-format", &fields->imageFormat, imageFormats.c_str(), "Version 1");
  add("--color", &fields->colorType, colorTypes.c_str(), "Version 1");
  add("--load-paper", &fields->loadPaper, loadPapers.c_str(), "Version 1");
  add("--paper-type", &fields->paperType, "WORD", paperTypes.c_str());
  add("--paper-width", &fields->paperWidth, "N", "Version 1, 0 to 999999999");
  add("--paper-height", &fields->paperHeight, "N", "Version 1, 0 to 999999999");
  add("--scan-x", &fields->scanX, "N", "Version 1, 0 to 999999999");
  add("--scan-y", &fields->scanY, "N", "Version 1, 0 to 999999999");
}

void AddFaultOptions(tools::CommandLine* command, RequestOptions* options) {
  const char* group = "Wrong on purpose";
  const auto addHeader = [&](const char* name, Headers* headers, const char* text) {
    tools::AddRepeatable(command, {name, "\"Name: value\"", text, group},
                         [=](const std::string& line) { AddHeaderLine(headers, line); });
  };
  tools::AddFlag(command, {"--unchecked", nullptr, "Send fields that a PC must refuse", group},
                 &options->unchecked);
  tools::AddText(command, {"--version-text", "TEXT", "Value of x-protocol-version", group},
                 &options->versionText);
  addHeader("--header", &options->replacedHeaders, "Replace or add a header; repeatable");
  addHeader("--add-header", &options->addedHeaders,
            "Add a header even if there is one of that name; repeatable");
  tools::AddRepeatable(command, {"--without", "NAME", "Leave out a header; repeatable", group},
                       [=](const std::string& name) { options->removedHeaders.push_back(name); });
  tools::AddTextAction(command,
                       {"--body-file", "FILE", "Send the bytes of this file as the body", group},
                       [options](const std::string& path) {
                         options->hasBody = tools::ReadFileBytes(path, &options->body);
                         if (!options->hasBody) {
                           tools::RefuseCommandLine("--body-file: cannot read '" + path + "'");
                         }
                       });
  tools::AddNumber(command, {"--cut", "N", "Send in pieces of this many bytes", group},
                   &options->link.pieceSize, 1, MILLISECONDS_LIMIT);
  tools::AddNumber(command, {"--pause", "MS", "Wait between two pieces", group},
                   &options->link.pauseMs, 0, MILLISECONDS_LIMIT);
}

// The options by the elements that they fill.
constexpr std::pair<const char*, const char*> FIELD_OPTIONS[] = {
    {"ProductNameIn", "--product"},
    {"IPAddressIn", "--ip"},
    {"PushScanIDIn", "--id"},
    {"ImageFormatIn", "--image-format"},
    {"ColorTypeIn", "--color"},
    {"LoadPaperIn", "--load-paper"},
    {"PaperTypeIn", "--paper-type"},
    {"PaperWidthIn", "--paper-width"},
    {"PaperHeightIn", "--paper-height"},
    {"ScanXIn", "--scan-x"},
    {"ScanYIn", "--scan-y"},
};

void CheckElement(const Element& element, const PushScanFields& fields) {
  const std::string problem = ElementProblem(element, fields.*element.text);
  if (problem.empty()) {
    return;
  }
  for (const auto& [name, option] : FIELD_OPTIONS) {
    if (std::string(name) == element.name) {
      tools::RefuseCommandLine(option + (": " + problem) + " (--unchecked sends it all the same)");
    }
  }
}

}  // namespace

const char* ExchangeName(Exchange exchange) {
  switch (exchange) {
    case EXCHANGE_START:
      return "start";
    case EXCHANGE_END:
      return "end";
    default:
      return "single";
  }
}

void AddLinkOptions(tools::CommandLine* command, RequestOptions* options) {
  using tools::SHOW_DEFAULT;
  Link* link = &options->link;
  tools::AddHost(command,
                 {"--to", "HOST", "The PC's IPv4 address or name", "Options", SHOW_DEFAULT},
                 &link->address);
  tools::AddNumber(command, {"--port", "PORT", "The PC's TCP port", "Options", SHOW_DEFAULT},
                   &link->port, 1, 65535);
  tools::AddNumber(command,
                   {"--timeout", "MS", "Longest wait for an answer", "Options", SHOW_DEFAULT},
                   &link->timeoutMs, 1, MILLISECONDS_LIMIT);
  tools::AddFlag(command, {"--json", nullptr, "Print one JSON object a line"}, &options->json);
  tools::AddFlag(command,
                 {"--trace", nullptr, "Show every byte sent and received (standard error)"},
                 &link->trace);
}

void AddRequestOptions(tools::CommandLine* command, RequestOptions* options) {
  AddLinkOptions(command, options);
  AddFieldOptions(command, options);
  AddFaultOptions(command, options);
}

void CheckRequestOptions(const RequestOptions& options) {
  if (options.unchecked) {
    return;
  }
  for (const bool isVersion2 : {false, true}) {
    for (const Element& element : ElementsOf(isVersion2)) {
      CheckElement(element, options.fields);
    }
  }
}

void AddConnectionOptions(tools::CommandLine* command, RequestOptions* options) {
  tools::AddHost(command,
                 {"--bind", "HOST", "This machine's address to connect from (default: chosen)"},
                 &options->bind);
  tools::AddText(command,
                 {"--pcap", "FILE", "Write what is exchanged as a capture that Wireshark opens"},
                 &options->pcapFile);
}

Link OpenLink(const RequestOptions& options) {
  Link link = options.link;
  platform::TextToAddress(options.bind.c_str(), &link.source);
  link.capture = OpenCaptureFile(options.pcapFile);
  return link;
}

std::string NextUid(const RequestOptions& options) {
  static std::atomic<std::uint32_t> count{0};  // the panel's threads ask at a time
  if (!options.uid.empty()) {
    return options.uid;
  }
  // The most bytes that a uid may have: date, time, milliseconds and a two-digit count.
  const platform::LocalTimeStamp now = platform::ReadLocalTime();
  const std::string digits = std::to_string(100'000 + now.milliseconds * 100 + count++ % 100);
  return now.text + digits.substr(1);
}

Message MakeRequest(const RequestOptions& options, Exchange exchange, const std::string& uid,
                    const std::string& parentUid) {
  const bool hasSettings = options.protocol == 1;
  Message message;
  message.startLine = "POST /PushScan HTTP/1.0";
  if (options.hasBody) {
    message.body = options.body;
  } else {
    message.body = hasSettings ? SettingsDocument(options.fields) : IdDocument(options.fields);
  }
  const std::string version = hasSettings ? tools::VERSION_1 : tools::VERSION_2;
  message.headers = {{tools::HEADER_CONTENT_TYPE, tools::CONTENT_TYPE},
                     {tools::HEADER_CONTENT_LENGTH, std::to_string(message.body.size())},
                     {tools::HEADER_PROTOCOL_NAME, tools::PROTOCOL_NAME},
                     {tools::HEADER_PROTOCOL_VERSION,
                      options.versionText.empty() ? version : options.versionText}};
  if (exchange != EXCHANGE_OF_ONE) {
    message.headers.emplace_back(tools::HEADER_SUBEVENT, exchange == EXCHANGE_START
                                                             ? tools::SUBEVENT_START_WORD
                                                             : tools::SUBEVENT_END_WORD);
  }
  message.headers.emplace_back(tools::HEADER_UID, uid);
  if (!parentUid.empty()) {
    message.headers.emplace_back(tools::HEADER_PARENT_UID, parentUid);
  }
  for (const auto& [name, value] : options.replacedHeaders) {
    SetHeader(&message.headers, name, value);
  }
  for (const auto& header : options.addedHeaders) {
    message.headers.push_back(header);
  }
  for (const std::string& name : options.removedHeaders) {
    RemoveHeader(&message.headers, name);
  }
  return message;
}

}  // namespace zvqrn::scanner
