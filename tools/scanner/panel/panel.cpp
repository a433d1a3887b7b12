#include <memory>
#include <random>

#include "common/adapters.h"
#include "common/interrupt.h"
#include "common/json_lines.h"
#include "common/output.h"
#include "common/this_machine.h"
#include "platform/thread.h"
#include "scanner/command/commands.h"
#include "scanner/panel/api.h"
#include "scanner/panel/page.h"
#include "scanner/panel/scanners.h"

namespace zvqrn::scanner {

namespace {

struct PanelOptions {
  std::uint16_t port = 0;
  std::string listen = "127.0.0.1";
  std::string to = DISCOVERY_GROUP;
  std::string from;  // empty: chosen
  std::string bind;  // empty: the system's choice
  std::int32_t scanners = 2;
  bool open = false;
  bool json = false;
};

constexpr std::int32_t LOOK_EVERY_MS = 100;
constexpr int TOKEN_WORDS = 4;  // of 32 bits

constexpr char DESCRIPTION[] = "Shows a scanner's panel and the whole exchange in the browser";

constexpr char EXAMPLES[] =
    "Serves one page, prints its address, and runs until Ctrl-C.  On the page are the PCs that answer,\n"
    "scanners whose buttons send them requests, and a diagram of every message that goes to and fro.\n"
    "\n"
    "Only this machine can open the page, and only with the token in its address; with --listen others\n"
    "can who know the token, which then crosses the network unencrypted.\n"
    "\n"
    "SENDS TO THE NETWORK: it searches for PCs all the time, by multicast, as discover does; with --to\n"
    "it asks one PC only.  While it listens for replies, for 1.5 s in 4, direct requests of scanners to\n"
    "a service on the same machine reach this program instead.\n"
    "\n"
    "Examples:\n"
    "  quorin-scanner panel --open\n"
    "  quorin-scanner panel --port 8968\n"
    "  quorin-scanner panel --to 192.0.2.7            one PC, without multicast\n"
    "\n";

std::string HexOfRandom() {
  std::random_device random;
  std::string text;
  for (int i = 0; i < TOKEN_WORDS; ++i) {
    char word[16];
    std::snprintf(word, sizeof word, "%08x", static_cast<unsigned>(random()));
    text += word;
  }
  return text;
}

void Fill(std::string* page, const std::string& mark, const std::string& text) {
  for (std::size_t at = page->find(mark); at != std::string::npos;
       at = page->find(mark, at + text.size())) {
    page->replace(at, mark.size(), text);
  }
}

// The page, with a nonce of its own: no other script or style runs in it, and nothing is loaded.
HttpAnswer GivePage() {
  const std::string nonce = HexOfRandom();
  HttpAnswer answer;
  answer.type = "text/html; charset=utf-8";
  answer.policy = "default-src 'none'; script-src 'nonce-" + nonce + "'; style-src 'nonce-" +
                  nonce +
                  "'; img-src blob:; connect-src 'self'; base-uri 'none'; form-action 'none'; "
                  "frame-ancestors 'none'";
  answer.body = PAGE_HTML;
  Fill(&answer.body, "@NONCE@", nonce);
  Fill(&answer.body, "@STYLE@", PAGE_STYLE);
  Fill(&answer.body, "@WORDS@", PAGE_WORDS);
  Fill(&answer.body, "@SCRIPT@", PAGE_SCRIPT);
  return answer;
}

// What a browser may call this server.
std::vector<std::string> HostNames(const PanelOptions& options, std::uint32_t address,
                                   std::uint16_t port) {
  std::vector<std::string> names = {"127.0.0.1", "localhost"};
  if (address == 0) {
    std::vector<tools::Adapter> adapters;
    tools::ListAdapters(&adapters);
    for (const tools::Adapter& adapter : adapters) {
      names.push_back(tools::AddressText(adapter.address));
    }
  } else {
    names.push_back(options.listen);
  }
  constexpr std::uint16_t HTTP_PORT = 80;
  for (std::string& name : names) {
    // Browsers leave this one out.
    name += port == HTTP_PORT ? std::string() : ":" + std::to_string(port);
  }
  return names;
}

void PrintAddress(const PanelOptions& options, const std::string& address) {
  if (options.json) {
    tools::PrintJsonLine({{"event", "panel"}, {"address", address}});
  } else {
    tools::PrintLine("The panel is at " + address + "\nCtrl-C ends it.");
  }
}

ExitCode RunPanel(const PanelOptions& options) {
  const SocketUse use;
  std::uint32_t listen = 0;
  std::uint32_t to = 0;
  std::uint32_t from = 0;
  PanelParts parts;
  platform::TextToAddress(options.listen.c_str(), &listen);
  platform::TextToAddress(options.to.c_str(), &to);
  platform::TextToAddress(options.from.c_str(), &from);
  platform::TextToAddress(options.bind.c_str(), &parts.bind);

  PanelState state;
  Searching searching(&state, to, from);
  Load load(&state);
  parts.state = &state;
  parts.searching = &searching;
  parts.load = &load;
  parts.version = QUORIN_VERSION;
  HttpService service;
  service.gate.token = HexOfRandom();
  service.answer = [&parts](const HttpRequest& request) {
    return request.path == "/" && request.method == "GET" ? GivePage() : AnswerApi(parts, request);
  };
  service.streamPath = "/api/events";
  service.news = [&state](std::uint64_t* last) {
    const Guard guard(state.lock);
    return state.history.ChangesAfter(last);
  };
  HttpServer server(service);
  server.Listen(listen, options.port);
  server.Gate()->hosts = HostNames(options, listen, server.Port());
  state.tellNews = [&server] { server.TellNews(); };

  tools::WatchForInterrupt();
  {
    const Guard guard(state.lock);
    for (int i = 0; i < options.scanners; ++i) {
      AddScanner(&state);
    }
  }
  searching.Start();
  const std::string host = listen == 0 ? "127.0.0.1" : options.listen;
  const std::string address =
      "http://" + host + ":" + std::to_string(server.Port()) + "/?token=" + service.gate.token;
  PrintAddress(options, address);
  if (options.open && !tools::OpenInBrowser(address)) {
    tools::PrintError("No browser can be opened here; open the address by hand.");
  }
  while (!tools::InterruptCame() && !tools::OutputFailed()) {
    server.Serve(LOOK_EVERY_MS);
  }
  // Everybody looks at this within half a second, but for who waits for the network: 3 s at most.
  state.ending.store(true);
  server.End();
  {
    const Guard guard(state.lock);
    for (const auto& [number, scanner] : state.scanners) {
      scanner->Stop(true);
    }
    searching.Poke();
  }
  platform::WaitForThreads();
  return EXIT_OK;
}

}  // namespace

void AddPanel(tools::CommandLine* program, Command* chosen) {
  using tools::SHOW_DEFAULT;
  const auto options = std::make_shared<PanelOptions>();
  tools::CommandLine* command = tools::AddCommand(
      program, "panel", DESCRIPTION, std::string(EXAMPLES) + EXIT_CODES_HELP, [options, chosen] {
        chosen->json = options->json;
        chosen->run = [options] { return RunPanel(*options); };
      });
  const char* group = "Options";
  tools::AddNumber(command, {"--port", "PORT", "TCP port of the page (default: a free one)", group},
                   &options->port, 0, 65535);
  tools::AddHost(command,
                 {"--listen", "HOST",
                  "This machine's address at which the page can be opened; "
                  "0.0.0.0: every one",
                  group, SHOW_DEFAULT},
                 &options->listen);
  tools::AddFlag(command, {"--open", nullptr, "Open the page in the browser"}, &options->open);
  tools::AddHost(
      command,
      {"--to", "HOST", "Search for PCs in this group, or ask this PC", group, SHOW_DEFAULT},
      &options->to);
  tools::AddHost(
      command,
      {"--from", "HOST",
       "This machine's address to search from, which chooses the adapter (default: chosen)"},
      &options->from);
  tools::AddHost(command,
                 {"--bind", "HOST", "This machine's address to connect from (default: chosen)"},
                 &options->bind);
  tools::AddNumber(command,
                   {"--scanners", "N", "Virtual scanners to begin with", group, SHOW_DEFAULT},
                   &options->scanners, 1, SCANNERS_LIMIT);
  tools::AddFlag(command, {"--json", nullptr, "Print one JSON object a line"}, &options->json);
}

}  // namespace zvqrn::scanner
