#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

#include "common/adapters.h"
#include "common/json_lines.h"
#include "common/output.h"
#include "common/text.h"
#include "common/utf8.h"
#include "common/vocabulary.h"
#include "scanner/command/commands.h"
#include "scanner/command/exit_code.h"
#include "scanner/search/search.h"

namespace zvqrn::scanner {

namespace {

struct DiscoverOptions {
  Search search;
  std::string to = DISCOVERY_GROUP;
  std::string from;  // empty: chosen
  std::string product;
  std::string pcapFile;
  int xid = -1;  // below 0: a fresh one
  int count = 0;
  bool json = false;
};

constexpr std::int32_t MILLISECONDS_LIMIT = 3'600'000;
constexpr std::size_t TEXT_LIMIT = 65535;
constexpr std::size_t DATAGRAM_LIMIT = 65507;

constexpr char DESCRIPTION[] = "Finds the PCs on which the service runs, as a scanner does";

constexpr char EXAMPLES[] =
    "Sends an attribute request, by multicast to 239.255.255.253 or to one PC, and lists who answers.\n"
    "PCs send their replies, three identical datagrams 500 ms apart, to UDP port 2968 of the address\n"
    "that asked, whatever port it asked from: this program listens there, and shares the port with a\n"
    "service on the same machine.  To ask that service itself, name one of the machine's own addresses\n"
    "with --to: it is then asked from a loopback address.\n"
    "A PC answers the scope 'default' without asking its host, and the scope of a product that its\n"
    "utility library knows if its host agrees; it stays silent to everything else.\n"
    "\n"
    "Examples:\n"
    "  quorin-scanner discover                        who is there?\n"
    "  quorin-scanner discover --to 192.0.2.7         is this PC findable at all?\n"
    "  quorin-scanner discover --product XS-200       as a scanner of this product\n"
    "  quorin-scanner discover --from 192.0.2.10 --count 1 --json\n"
    "  quorin-scanner discover --repeat 3 --interval 200 --trace\n"
    "  quorin-scanner discover --previous 192.0.2.7   all but this PC\n"
    "  quorin-scanner discover --service-type service:printer\n"
    "                                                 nothing must answer: exit code 3\n"
    "\n"
    "Exit codes: 0 at least one PC found; 1 trouble on this machine (no adapter, port 2968 not to\n"
    "be had); 2 wrong command line; 3 nothing found; 6 only malformed replies came.";

std::string XidText(std::uint16_t xid) {
  char text[8];
  std::snprintf(text, sizeof text, "0x%04X", static_cast<unsigned>(xid));
  return text;
}

std::string Milliseconds(double milliseconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f ms", milliseconds);
  return text;
}

std::string Datagrams(int count) {
  return std::to_string(count) + (count == 1 ? " datagram" : " datagrams");
}

void PrintAsking(bool json, const Search& search) {
  const std::string to = tools::AddressText(search.to);
  const std::string from = tools::AddressText(search.from);
  if (json) {
    tools::PrintJsonLine({{"event", "asking"},
                          {"to", to},
                          {"from", from},
                          {"xid", search.request.xid},
                          {"scope", tools::JsonText(search.request.scopes)}});
    return;
  }
  tools::PrintLine("asking " + to + " from " + from + ", XID " + XidText(search.request.xid) +
                   ", scope '" + tools::EscapeUtf8(search.request.scopes) + "'");
}

void PrintPc(bool json, int number, const FoundPc& pc) {
  const std::vector<std::string> notes = NotesOn(pc);
  if (json) {
    // A name that is not UTF-8 makes a reply malformed, so this one can stand as it is.
    tools::PrintJsonLine({{"event", "pc"},
                          {"number", number},
                          {"name", pc.description.name},
                          {"address", pc.description.address},
                          {"eventPort", pc.description.eventPort},
                          {"from", tools::AddressText(pc.sender)},
                          {"replyMs", static_cast<double>(std::lround(pc.replyMs * 10)) / 10},
                          {"datagrams", pc.datagrams},
                          {"notes", notes}});
    return;
  }
  std::string text = "PC " + std::to_string(number) + ": " +
                     tools::EscapeUtf8(pc.description.name) + "\n    address   " +
                     pc.description.address + ", event port " +
                     std::to_string(pc.description.eventPort) + "\n    reply     after " +
                     Milliseconds(pc.replyMs) + ", " + Datagrams(pc.datagrams);
  for (const std::string& note : notes) {
    text += "\n    note      " + note;
  }
  tools::PrintLine(text);
}

void PrintMalformed(bool json, const MalformedReply& reply) {
  const std::string from =
      reply.sender == 0 ? std::string("several") : tools::AddressText(reply.sender);
  if (json) {
    tools::PrintJsonLine({{"event", "malformed"},
                          {"from", from},
                          {"problem", reply.problem},
                          {"datagrams", reply.datagrams}});
    return;
  }
  tools::PrintLine("malformed reply from " + from + " (" + Datagrams(reply.datagrams) +
                   "): " + reply.problem);
}

// Fills in what the command line leaves open, which needs the machine's sockets.
Search CompleteSearch(const DiscoverOptions& options) {
  std::uint32_t to = 0;
  platform::TextToAddress(options.to.c_str(), &to);
  Search search = MakeSearch(to);
  const std::uint16_t freshXid = search.request.xid;
  search = options.search;
  search.to = to;
  search.request.multicast = IsGroup(to);
  search.request.xid = options.xid < 0 ? freshXid : static_cast<std::uint16_t>(options.xid);
  if (options.from.empty()) {
    search.from = ChooseSource(to);
  } else {
    platform::TextToAddress(options.from.c_str(), &search.from);
  }
  if (!options.product.empty()) {
    search.request.scopes = EscapeScope(options.product);
  }
  search.capture = OpenCaptureFile(options.pcapFile);
  return search;
}

ExitCode RunDiscover(const DiscoverOptions& options) {
  const SocketUse use;
  const Search search = CompleteSearch(options);
  PrintAsking(options.json, search);
  const SearchResult result = RunSearch(search, [&](const SearchResult& soFar) {
    return options.count > 0 && soFar.pcs.size() >= static_cast<std::size_t>(options.count);
  });
  int number = 0;
  for (const FoundPc& pc : result.pcs) {
    PrintPc(options.json, ++number, pc);
  }
  for (const MalformedReply& reply : result.malformed) {
    PrintMalformed(options.json, reply);
  }
  if (result.moreMalformed > 0) {
    PrintMalformed(options.json, {0, "these are not listed", result.moreMalformed});
  }
  if (!result.pcs.empty()) {
    return EXIT_OK;
  }
  if (!result.malformed.empty()) {
    throw Failure(EXIT_PROTOCOL_ERROR, "only malformed replies came");
  }
  std::string reason = "no PC answered within " + std::to_string(search.timeoutMs) + " ms";
  if (result.foreign > 0) {
    reason += "; " + Datagrams(result.foreign) + " answered another request";
  }
  throw Failure(EXIT_NOTHING_THERE, reason);
}

void AddRequestTexts(tools::CommandLine* command, DiscoverOptions* options) {
  const char* group = "Request";
  AttributeRequest* request = &options->search.request;
  const auto add = [&](const char* name, std::string* value, const char* type, const char* text,
                       const tools::TextCheck& check = {}) {
    return tools::AddText(command, {name, type, text, group, tools::SHOW_DEFAULT}, value, check);
  };
  CLI::Option* scope = add("--scope", &request->scopes, "TEXT", "The scope list as it is sent");
  tools::Exclude(add("--product", &options->product, "NAME",
                     "Scope of this product: NAME with a backslash before each \\ , ( and )",
                     tools::NameProblem),
                 scope);
  add("--service-type", &request->serviceType, "TEXT", "The service asked for");
  add("--language", &request->language, "TAG", "The language tag, which the reply must repeat");
  add("--tags", &request->tags, "TEXT", "The tag list");
  add("--previous", &request->previousResponders, "ADDR[,ADDR]",
      "Addresses of PCs that are not to answer; sent as it is");
  tools::AddTextAction(command,
                       {"--raw-file", "FILE", "Send the bytes of this file instead", group},
                       [options](const std::string& path) {
                         std::string* bytes = &options->search.rawBytes;
                         if (!tools::ReadFileBytes(path, bytes) || bytes->empty() ||
                             bytes->size() > DATAGRAM_LIMIT) {
                           tools::RefuseCommandLine("--raw-file: '" + path +
                                                    "' cannot be read, is empty or too long");
                         }
                       });
  tools::AddNumber(command,
                   {"--xid", "N", "The request's number, 0 to 65535 (default: random)", group},
                   &options->xid, 0, 65535);
}

void AddSearchOptions(tools::CommandLine* command, DiscoverOptions* options) {
  using tools::SHOW_DEFAULT;
  Search* search = &options->search;
  const char* group = "Options";
  tools::AddHost(command,
                 {"--to", "HOST", "Ask this PC, or multicast to this group", group, SHOW_DEFAULT},
                 &options->to);
  tools::AddHost(
      command,
      {"--from,--bind", "HOST",
       "This machine's address to ask from; for a multicast it also chooses the adapter (default: chosen)"},
      &options->from);
  tools::AddText(command,
                 {"--pcap", "FILE", "Write what is exchanged as a capture that Wireshark opens"},
                 &options->pcapFile);
  tools::AddNumber(
      command,
      {"--source-port", "PORT", "UDP port to ask from (0: a free one)", group, SHOW_DEFAULT},
      &search->sourcePort, 0, 65535);
  tools::AddNumber(
      command, {"--timeout", "MS", "Wait for replies after the last request", group, SHOW_DEFAULT},
      &search->timeoutMs, 1, MILLISECONDS_LIMIT);
  tools::AddNumber(command, {"--count", "N", "Stop as soon as this many PCs have answered"},
                   &options->count, 1, 1'000'000);
  tools::AddNumber(command,
                   {"--repeat", "N", "Send the same request this many times", group, SHOW_DEFAULT},
                   &search->repeat, 1, 10'000);
  tools::AddNumber(
      command,
      {"--interval", "MS", "With --repeat: time between two requests", group, SHOW_DEFAULT},
      &search->intervalMs, 0, 60'000);
  tools::AddFlag(command, {"--json", nullptr, "Print one JSON object a line"}, &options->json);
  tools::AddFlag(command,
                 {"--trace", nullptr, "Show every byte sent and received (standard error)"},
                 &search->trace);
}

void CheckOptions(const DiscoverOptions& options) {
  if (options.from == options.to) {
    tools::RefuseCommandLine(
        "--from and --to are the same address: the request would come back to this program; leave out --from");
  }
  AttributeRequest request = options.search.request;
  if (!options.product.empty()) {
    request.scopes = EscapeScope(options.product);
  }
  const std::string* texts[] = {&request.language, &request.previousResponders,
                                &request.serviceType, &request.scopes, &request.tags};
  const bool fit = std::all_of(std::begin(texts), std::end(texts),
                               [](const std::string* text) { return text->size() <= TEXT_LIMIT; });
  if (!fit || RequestBytes(request).size() > DATAGRAM_LIMIT) {
    tools::RefuseCommandLine("the texts do not fit into one datagram");
  }
}

}  // namespace

void AddDiscover(tools::CommandLine* program, Command* chosen) {
  const auto options = std::make_shared<DiscoverOptions>();
  tools::CommandLine* command =
      tools::AddCommand(program, "discover", DESCRIPTION, EXAMPLES, [options, chosen] {
        CheckOptions(*options);
        chosen->json = options->json;
        chosen->run = [options] { return RunDiscover(*options); };
      });
  AddSearchOptions(command, options.get());
  AddRequestTexts(command, options.get());
}

}  // namespace zvqrn::scanner
