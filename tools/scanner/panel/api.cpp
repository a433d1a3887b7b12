#include "scanner/panel/api.h"

#include <algorithm>
#include <utility>

#include "common/adapters.h"
#include "common/json_lines.h"
#include "common/text.h"
#include "common/vocabulary.h"
#include "scanner/panel/faults.h"
#include "scanner/panel/scanners.h"
#include "scanner/wire/capture_file.h"

namespace zvqrn::scanner {

namespace {

using tools::JsonMembers;
using tools::JsonObject;
using tools::JsonValue;

// What a page shows of the bytes of one message; all of them are in the downloads.
constexpr std::size_t SHOWN_BYTES = 65536;
constexpr std::int32_t TIMEOUT_LIMIT_MS = 600'000;

// The request of the page cannot be done, for this reason.
struct Refused : Failure {
  explicit Refused(const std::string& reason) : Failure(EXIT_USAGE, reason) {}
};

// ---- Reading what the page sends ------------------------------------------------------------------

std::string TextOfMember(const JsonMembers& members, const char* name) {
  const auto found = members.find(name);
  return found == members.end() ? std::string() : found->second.text;
}

bool TruthOfMember(const JsonMembers& members, const char* name) {
  const auto found = members.find(name);
  return found != members.end() && found->second.truth;
}

std::int32_t NumberOfMember(const JsonMembers& members, const char* name, std::int32_t least,
                            std::int32_t most) {
  const auto found = members.find(name);
  if (found == members.end() || found->second.kind != tools::JSON_INTEGER ||
      found->second.integer < least || found->second.integer > most) {
    throw Refused(std::string(name) + " is no number from " + std::to_string(least) + " to " +
                  std::to_string(most));
  }
  return static_cast<std::int32_t>(found->second.integer);
}

std::uint32_t AddressOfMember(const JsonMembers& members, const char* name) {
  std::uint32_t address = 0;
  const std::string text = TextOfMember(members, name);
  if (!platform::TextToAddress(text.c_str(), &address) || address == 0) {
    throw Refused("'" + tools::EscapeBytes(text) + "' is no IPv4 address such as 192.0.2.1");
  }
  return address;
}

// Where to and with what in it; the elements of the document have their own names.
RequestOptions ReadRequest(const PanelParts& parts, const JsonMembers& members) {
  RequestOptions options;
  options.link.address = tools::AddressText(AddressOfMember(members, "to"));
  options.link.port = static_cast<std::uint16_t>(NumberOfMember(members, "port", 1, 65535));
  options.link.source = parts.bind;
  options.protocol = NumberOfMember(members, "protocol", 1, 2);
  for (const Element& element : ElementsOf(options.protocol == 2)) {
    if (members.count(element.name) > 0) {
      options.fields.*element.text = TextOfMember(members, element.name);
    }
    const std::string problem = ElementProblem(element, options.fields.*element.text);
    if (!problem.empty()) {
      throw Refused(std::string(element.name) + ": " + problem);
    }
  }
  return options;
}

const Fault* ReadFault(const JsonMembers& members, RequestOptions* options) {
  const std::string name = TextOfMember(members, "fault");
  const Fault* fault = FindFault(name);
  if (fault == nullptr && !name.empty()) {
    throw Refused("no such fault");
  }
  if (fault != nullptr && fault->change != nullptr) {
    fault->change(options);
  }
  return fault;
}

Exchange ReadExchange(const JsonMembers& members) {
  const std::string text = TextOfMember(members, "exchange");
  for (const Exchange exchange : {EXCHANGE_OF_ONE, EXCHANGE_START, EXCHANGE_END}) {
    if (text == ExchangeName(exchange)) {
      return exchange;
    }
  }
  throw Refused("no such exchange");
}

VirtualScanner* ScannerOf(const PanelParts& parts, const JsonMembers& members) {
  const auto found =
      parts.state->scanners.find(NumberOfMember(members, "scanner", 1, SCANNERS_LIMIT));
  if (found == parts.state->scanners.end()) {
    throw Refused("there is no such scanner");
  }
  return found->second.get();
}

// ---- What the page has done -----------------------------------------------------------------------

void Push(const PanelParts& parts, const JsonMembers& members) {
  ScanOrder order;
  order.options = ReadRequest(parts, members);
  order.fault = ReadFault(members, &order.options);
  order.exchange = ReadExchange(members);
  order.staysConnected = TruthOfMember(members, "stay");
  order.times = NumberOfMember(members, "times", 1, TIMES_LIMIT);
  order.timeoutMs = NumberOfMember(members, "timeoutMs", 100, TIMEOUT_LIMIT_MS);
  const Guard guard(parts.state->lock);
  if (!ScannerOf(parts, members)->Give(order)) {
    throw Refused("this scanner has too much to do already");
  }
}

void Disconnect(const PanelParts& parts, const JsonMembers& members) {
  const Guard guard(parts.state->lock);
  ScannerOf(parts, members)->Stop(false);
}

void AddOne(const PanelParts& parts, const JsonMembers& /*members*/) {
  const Guard guard(parts.state->lock);
  const VirtualScanner* scanner = AddScanner(parts.state);
  if (scanner == nullptr) {
    throw Refused("there are as many scanners as can be");
  }
  parts.state->history.Tell("scanner", scanner->Describe().Text());
}

void RemoveOne(const PanelParts& parts, const JsonMembers& members) {
  const Guard guard(parts.state->lock);
  ScannerOf(parts, members)->Stop(true);
  const std::int32_t number = NumberOfMember(members, "scanner", 1, SCANNERS_LIMIT);
  parts.state->scanners.erase(number);
  parts.state->history.Tell("scanner-gone", JsonObject({{"number", number}}).Text());
}

void SearchNow(const PanelParts& parts, const JsonMembers& members) {
  const std::string product = TextOfMember(members, "product");
  if (product.size() > tools::NAME_LIMIT) {
    throw Refused("the product: " + tools::NameProblem(product));
  }
  const Guard guard(parts.state->lock);
  if (!TextOfMember(members, "address").empty() &&
      !parts.searching->AskToo(AddressOfMember(members, "address"))) {
    throw Refused("no more addresses can be asked");
  }
  parts.searching->SearchNow(product);
}

void ExamineOne(const PanelParts& parts, const JsonMembers& members) {
  const Guard guard(parts.state->lock);
  if (!parts.searching->Examine(AddressOfMember(members, "from"))) {
    throw Refused("there is no such PC");
  }
}

void StartLoad(const PanelParts& parts, const JsonMembers& members) {
  LoadOrder order;
  order.options = ReadRequest(parts, members);
  order.perSecond = NumberOfMember(members, "perSecond", 1, LOAD_RATE_LIMIT);
  order.seconds = NumberOfMember(members, "seconds", 1, LOAD_SECONDS_LIMIT);
  const Guard guard(parts.state->lock);
  if (!parts.load->Start(order)) {
    throw Refused("a load runs already");
  }
}

void StopLoad(const PanelParts& parts, const JsonMembers& /*members*/) {
  parts.load->Stop();
}

void Clear(const PanelParts& parts, const JsonMembers& /*members*/) {
  const Guard guard(parts.state->lock);
  parts.state->history.Clear();
  parts.state->history.Tell("cleared", "{}");
}

struct Deed {
  const char* path;
  void (*run)(const PanelParts& parts, const JsonMembers& members);
};

constexpr Deed DEEDS[] = {
    {"/api/push", Push},        {"/api/disconnect", Disconnect}, {"/api/add", AddOne},
    {"/api/remove", RemoveOne}, {"/api/search", SearchNow},      {"/api/examine", ExamineOne},
    {"/api/load", StartLoad},   {"/api/stop-load", StopLoad},    {"/api/clear", Clear},
};

HttpAnswer Problem(HttpStatus status, const std::string& reason) {
  HttpAnswer answer;
  answer.status = status;
  answer.body = JsonObject({{"problem", reason}}).Text();
  return answer;
}

HttpAnswer DoDeed(const PanelParts& parts, const HttpRequest& request) {
  const auto* const deed = std::find_if(std::begin(DEEDS), std::end(DEEDS), [&](const Deed& known) {
    return request.path == known.path;
  });
  if (deed == std::end(DEEDS)) {
    return Problem(HTTP_NOT_FOUND, "there is no such page");
  }
  JsonMembers members;
  std::string why;
  if (!tools::ReadJsonObject(request.body, &members, &why)) {
    return Problem(HTTP_BAD_REQUEST, why);
  }
  try {
    deed->run(parts, members);
  } catch (const Failure& failure) {
    return Problem(HTTP_BAD_REQUEST, failure.what());
  }
  parts.state->tellNews();
  HttpAnswer answer;
  answer.body = "{}";
  return answer;
}

// ---- What the page looks at -----------------------------------------------------------------------

std::vector<JsonObject> WordObjects(const tools::Words& words) {
  std::vector<JsonObject> objects;
  for (const tools::Word& word : words) {
    objects.push_back({{"text", word.text},
                       {"number", word.number},
                       {"meaning", word.meaning == nullptr ? "" : word.meaning}});
  }
  return objects;
}

const char* KindWord(ElementKind kind) {
  constexpr const char* WORDS[] = {"text", "word", "measure", "id"};
  return WORDS[kind];
}

std::vector<JsonObject> ElementObjects(bool isVersion2) {
  const PushScanFields defaults;
  std::vector<JsonObject> objects;
  for (const Element& element : ElementsOf(isVersion2)) {
    JsonObject object = {{"name", element.name},
                         {"kind", KindWord(element.kind)},
                         {"default", defaults.*element.text}};
    if (element.words != nullptr) {
      object["words"] = WordObjects(*element.words);
    }
    objects.push_back(object);
  }
  return objects;
}

// What stays as it is while the panel runs.
JsonObject FixedThings(const PanelParts& parts) {
  std::vector<JsonObject> rules;
  for (int id = 0; id < RULE_COUNT; ++id) {
    const Rule& rule = RuleOf(static_cast<RuleId>(id));
    rules.push_back({{"name", rule.name},
                     {"outcome", OutcomeText(rule, rule.outcome)},
                     {"text", rule.sentence}});
  }
  std::vector<JsonObject> statuses;
  for (const char* status :
       {tools::STATUS_ACCEPTED, tools::STATUS_ACCEPTED_MINOR, tools::STATUS_BAD_VERSION,
        tools::STATUS_NO_BODY, tools::STATUS_BAD_HEADERS, tools::STATUS_BUSY,
        tools::STATUS_BAD_PARENT, tools::STATUS_BAD_DOCUMENT, tools::STATUS_INTERNAL_FAILURE}) {
    statuses.push_back({{"text", status}, {"meaning", tools::StatusMeaning(status)}});
  }
  std::vector<JsonObject> faults;
  for (const Fault& fault : Faults()) {
    faults.push_back({{"name", fault.name}, {"rule", RuleOf(fault.rule).name}});
  }
  return {{"version", parts.version},
          {"rules", rules},
          {"statuses", statuses},
          {"statusOuts", WordObjects(tools::STATUS_OUT_WORDS)},
          {"faults", faults},
          {"settings", ElementObjects(false)},
          {"byId", ElementObjects(true)}};
}

// A list whose members are JSON already.
JsonValue JsonList(const std::deque<Remembered>& messages) {
  JsonValue list;
  list.text = "[";
  for (const Remembered& message : messages) {
    if (!message.summary.empty()) {
      list.text += (list.text.size() > 1 ? "," : "") + message.summary;
    }
  }
  list.text += "]";
  return list;
}

JsonObject Everything(const PanelParts& parts) {
  const Guard guard(parts.state->lock);
  std::vector<JsonObject> scanners;
  for (const auto& [number, scanner] : parts.state->scanners) {
    scanners.push_back(scanner->Describe());
  }
  return {{"last", parts.state->history.LastChange()},
          {"fixed", FixedThings(parts)},
          {"search", DescribePcs(*parts.state)},
          {"scanners", scanners},
          {"load", parts.load->Describe()},
          {"messages", JsonList(parts.state->history.Messages())}};
}

std::string HexText(const std::string& bytes, std::size_t most) {
  constexpr char DIGITS[] = "0123456789ABCDEF";
  std::string text;
  for (std::size_t i = 0; i < std::min(bytes.size(), most); ++i) {
    const auto byte = static_cast<unsigned char>(bytes[i]);
    text += {DIGITS[byte >> 4U], DIGITS[byte & 0x0FU]};
  }
  return text;
}

JsonObject DescribeBytes(const Remembered& happened, std::size_t most) {
  std::vector<JsonObject> fields;
  for (const Field& field : happened.fields) {
    fields.push_back({{"offset", field.offset},
                      {"size", field.size},
                      {"name", tools::EscapeBytes(field.name)},
                      {"value", tools::EscapeBytes(field.value.substr(0, most))}});
  }
  return {{"number", happened.number},
          {"size", happened.bytes.size()},
          {"forgotten", happened.forgotten},
          {"bodyOffset", happened.bodyOffset},
          {"hex", HexText(happened.bytes, most)},
          {"fields", fields}};
}

// The message that the address names; null when it is no longer there.  With the lock.
const Remembered* MessageOf(const PanelParts& parts, const HttpRequest& request) {
  std::int32_t number = 0;
  return tools::ParseNumber(HttpQuery(request, "number"), &number) && number > 0
             ? parts.state->history.Find(static_cast<std::uint64_t>(number))
             : nullptr;
}

HttpAnswer ShowMessage(const PanelParts& parts, const HttpRequest& request) {
  const Guard guard(parts.state->lock);
  const Remembered* happened = MessageOf(parts, request);
  if (happened == nullptr) {
    return Problem(HTTP_NOT_FOUND, "this message is no longer kept");
  }
  HttpAnswer answer;
  answer.body = DescribeBytes(*happened, SHOWN_BYTES).Text();
  return answer;
}

HttpAnswer GiveData(const PanelParts& parts, const HttpRequest& request) {
  const Guard guard(parts.state->lock);
  const Remembered* happened = MessageOf(parts, request);
  if (happened == nullptr || happened->bodyOffset == 0 ||
      happened->bytes.size() < happened->bodyOffset) {
    return Problem(HTTP_NOT_FOUND, "this data is no longer kept");
  }
  HttpAnswer answer;
  answer.type = "application/octet-stream";
  answer.body = happened->bytes.substr(happened->bodyOffset);
  // Never a name that the network gives.
  answer.fileName = "data-" + std::to_string(happened->number) + ".bin";
  return answer;
}

HttpAnswer GiveCapture(const PanelParts& parts) {
  const Guard guard(parts.state->lock);
  HttpAnswer answer;
  answer.type = "application/vnd.tcpdump.pcap";
  answer.body = CaptureHeader() + parts.state->history.Frames();
  answer.fileName = "exchange.pcap";
  return answer;
}

HttpAnswer GiveExchange(const PanelParts& parts) {
  const Guard guard(parts.state->lock);
  HttpAnswer answer;
  answer.fileName = "exchange.json";
  answer.body =
      R"({"tool":"quorin-scanner panel","version":")" + parts.version + R"(","messages":[)";
  const char* separator = "\n";
  for (const Remembered& happened : parts.state->history.Messages()) {
    if (happened.summary.empty()) {
      continue;
    }
    answer.body += separator + (R"({"message":)" + happened.summary + R"(,"bytes":)");
    answer.body += DescribeBytes(happened, happened.bytes.size()).Text() + "}";
    separator = ",\n";
  }
  answer.body += "\n]}\n";
  return answer;
}

}  // namespace

HttpAnswer AnswerApi(const PanelParts& parts, const HttpRequest& request) {
  if (request.method == "POST") {
    return DoDeed(parts, request);
  }
  if (request.path == "/api/state") {
    HttpAnswer answer;
    answer.body = Everything(parts).Text();
    return answer;
  }
  if (request.path == "/api/message") {
    return ShowMessage(parts, request);
  }
  if (request.path == "/api/data") {
    return GiveData(parts, request);
  }
  if (request.path == "/api/capture") {
    return GiveCapture(parts);
  }
  if (request.path == "/api/exchange") {
    return GiveExchange(parts);
  }
  return Problem(HTTP_NOT_FOUND, "there is no such page");
}

}  // namespace zvqrn::scanner
