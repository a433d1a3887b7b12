#include "scanner/request_options.h"

#include "common/text.h"
#include "platform/clock.h"

namespace zvqrn::scanner {

namespace {

constexpr std::int32_t MILLISECONDS_LIMIT = 3'600'000;
constexpr std::int32_t NUMBER_LIMIT = 999'999'999;
constexpr std::size_t TEXT_LIMIT = 31;

using Words = std::vector<std::string>;

void AddHeaderLine(Headers* headers, const std::string& text) {
  const std::size_t colon = text.find(':');
  const std::string name = tools::TrimBlanks(text.substr(0, colon));
  if (colon == std::string::npos || name.empty()) {
    throw CLI::ValidationError("'" + text + "' is not \"Name: value\"");
  }
  headers->emplace_back(name, tools::TrimBlanks(text.substr(colon + 1)));
}

void AddHeaderOption(CLI::App* command, const char* name, Headers* headers, const char* help) {
  command
      ->add_option_function<std::vector<std::string>>(
          name,
          [headers](const std::vector<std::string>& texts) {
            for (const std::string& text : texts) {
              AddHeaderLine(headers, text);
            }
          },
          help)
      ->type_name("\"Name: value\"")
      ->allow_extra_args(false)
      ->group("Wrong on purpose");
}

void AddField(CLI::App* command, const char* name, std::string* field, const char* type,
              const char* help) {
  command->add_option(name, *field, help)->type_name(type)->capture_default_str()->group("Request");
}

void AddFieldOptions(CLI::App* command, RequestOptions* options) {
  PushScanFields* fields = &options->fields;
  command->add_option("--protocol", options->protocol, "1: scan settings, 2: a push-scan ID")
      ->type_name("1|2")
      ->capture_default_str()
      ->check(CLI::Range(1, 2).description(""))
      ->group("Request");
  AddField(command, "--uid", &options->uid, "UID", "The request's uid (default: a fresh one)");
  AddField(command, "--product", &fields->productName, "NAME", "The scanner's product name");
  AddField(command, "--ip", &fields->ipAddress, "TEXT", "The scanner's address as it states it");
  AddField(command, "--id", &fields->pushScanId, "1|2|3", "Version 2: the push-scan ID");
  AddField(command, "--image-format", &fields->imageFormat, "PDF|TIFF|JPEG", "Version 1");
  AddField(command, "--color", &fields->colorType, "Color|Monochrome", "Version 1");
  AddField(command, "--load-paper", &fields->loadPaper, "Auto|Flatbed|Single|Double", "Version 1");
  AddField(command, "--paper-type", &fields->paperType, "WORD",
           "Version 1: Auto, User, A3, A4, A4_Landscape, B4, B5, B5_Landscape, Letter, "
           "Letter_Landscape, Legal");
  AddField(command, "--paper-width", &fields->paperWidth, "N", "Version 1, 0 to 999999999");
  AddField(command, "--paper-height", &fields->paperHeight, "N", "Version 1, 0 to 999999999");
  AddField(command, "--scan-x", &fields->scanX, "N", "Version 1, 0 to 999999999");
  AddField(command, "--scan-y", &fields->scanY, "N", "Version 1, 0 to 999999999");
}

void AddFaultOptions(CLI::App* command, RequestOptions* options) {
  const std::string group = "Wrong on purpose";
  command->add_flag("--unchecked", options->unchecked, "Send fields that a PC must refuse")
      ->group(group);
  command->add_option("--version-text", options->versionText, "Value of x-protocol-version")
      ->type_name("TEXT")
      ->group(group);
  AddHeaderOption(command, "--header", &options->replacedHeaders,
                  "Replace or add a header; repeatable");
  AddHeaderOption(command, "--add-header", &options->addedHeaders,
                  "Add a header even if there is one of that name; repeatable");
  command->add_option("--without", options->removedHeaders, "Leave out a header; repeatable")
      ->type_name("NAME")
      ->allow_extra_args(false)
      ->group(group);
  command
      ->add_option_function<std::string>(
          "--body-file",
          [options](const std::string& path) {
            options->hasBody = tools::ReadFileBytes(path, &options->body);
            if (!options->hasBody) {
              throw CLI::ValidationError("--body-file: cannot read '" + path + "'");
            }
          },
          "Send the bytes of this file as the body")
      ->type_name("FILE")
      ->group(group);
  command->add_option("--cut", options->link.pieceSize, "Send in pieces of this many bytes")
      ->type_name("N")
      ->check(CLI::Range(1, MILLISECONDS_LIMIT).description(""))
      ->group(group);
  command->add_option("--pause", options->link.pauseMs, "Wait between two pieces")
      ->type_name("MS")
      ->check(CLI::Range(0, MILLISECONDS_LIMIT).description(""))
      ->group(group);
}

void CheckWord(const char* option, const std::string& text, const Words& words) {
  std::string list;
  for (const std::string& word : words) {
    if (tools::EqualsIgnoringCase(text, word)) {
      return;
    }
    list += " " + word;
  }
  throw CLI::ValidationError(std::string(option) + ": '" + text + "' is none of" + list +
                             " (--unchecked sends it all the same)");
}

void CheckNumber(const char* option, const std::string& text, std::int32_t least,
                 std::int32_t most) {
  std::int32_t number = 0;
  if (!tools::ParseNumber(text, &number) || number < least || number > most) {
    throw CLI::ValidationError(std::string(option) + ": '" + text + "' is no number from " +
                               std::to_string(least) + " to " + std::to_string(most) +
                               " (--unchecked sends it all the same)");
  }
}

void CheckText(const char* option, const std::string& text) {
  if (text.empty() || text.size() > TEXT_LIMIT) {
    throw CLI::ValidationError(std::string(option) +
                               ": 1 to 31 bytes (--unchecked sends it all the same)");
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

void AddLinkOptions(CLI::App* command, RequestOptions* options) {
  Link* link = &options->link;
  command->add_option("--to", link->address, "The PC's IPv4 address")
      ->type_name("ADDR")
      ->capture_default_str()
      ->check([](const std::string& text) {
        std::uint32_t address = 0;
        const bool good = platform::TextToAddress(text.c_str(), &address);
        return good ? std::string() : "'" + text + "' is no IPv4 address such as 192.0.2.1";
      });
  command->add_option("--port", link->port, "The PC's TCP port")
      ->type_name("PORT")
      ->capture_default_str()
      ->check(CLI::Range(1, 65535).description(""));
  command->add_option("--timeout", link->timeoutMs, "Longest wait for an answer")
      ->type_name("MS")
      ->capture_default_str()
      ->check(CLI::Range(1, MILLISECONDS_LIMIT).description(""));
  command->add_flag("--json", options->json, "Print one JSON object a line");
  command->add_flag("--trace", link->trace, "Show every byte sent and received (standard error)");
}

void AddRequestOptions(CLI::App* command, RequestOptions* options) {
  AddLinkOptions(command, options);
  AddFieldOptions(command, options);
  AddFaultOptions(command, options);
}

void CheckRequestOptions(const RequestOptions& options) {
  if (options.unchecked) {
    return;
  }
  const PushScanFields& fields = options.fields;
  CheckText("--product", fields.productName);
  CheckText("--ip", fields.ipAddress);
  CheckNumber("--id", fields.pushScanId, 1, 3);
  CheckWord("--image-format", fields.imageFormat, {"PDF", "TIFF", "JPEG"});
  CheckWord("--color", fields.colorType, {"Color", "Monochrome"});
  CheckWord("--load-paper", fields.loadPaper, {"Auto", "Flatbed", "Single", "Double"});
  CheckWord("--paper-type", fields.paperType,
            {"Auto", "User", "A3", "A4", "A4_Landscape", "B4", "B5", "B5_Landscape", "Letter",
             "Letter_Landscape", "Legal"});
  CheckNumber("--paper-width", fields.paperWidth, 0, NUMBER_LIMIT);
  CheckNumber("--paper-height", fields.paperHeight, 0, NUMBER_LIMIT);
  CheckNumber("--scan-x", fields.scanX, 0, NUMBER_LIMIT);
  CheckNumber("--scan-y", fields.scanY, 0, NUMBER_LIMIT);
}

std::string NextUid(const RequestOptions& options) {
  static std::uint32_t count = 0;
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
  const std::string version = hasSettings ? "1.00" : "2.00";
  message.headers = {
      {"Content-Type", "application/octet-stream"},
      {"Content-Length", std::to_string(message.body.size())},
      {"x-protocol-name", PROTOCOL_NAME},
      {"x-protocol-version", options.versionText.empty() ? version : options.versionText}};
  if (exchange != EXCHANGE_OF_ONE) {
    message.headers.emplace_back("x-subevent", exchange == EXCHANGE_START ? "START" : "END");
  }
  message.headers.emplace_back("x-uid", uid);
  if (!parentUid.empty()) {
    message.headers.emplace_back("x-parent-uid", parentUid);
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
