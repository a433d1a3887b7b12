#include "scanner/stress/stress.h"

#include <algorithm>
#include <memory>

#include "common/interrupt.h"
#include "common/output.h"
#include "platform/clock.h"
#include "platform/thread.h"
#include "scanner/command/commands.h"
#include "scanner/exchange/report.h"
#include "scanner/search/search.h"
#include "scanner/wire/exchange.h"
#include "scanner/wire/reply_socket.h"

namespace zvqrn::scanner {

namespace {

struct StressOptions {
  RequestOptions request;
  double seconds = 60;
  std::vector<std::string> kinds;
  bool multicast = false;
  bool notAlone = false;
  bool publicAddress = false;
};

constexpr std::int32_t IN_PLACE_PATIENCE_MS = 3000;
constexpr std::int32_t LOOK_EVERY_MS = 2;

constexpr char DESCRIPTION[] =
    "Plays bad scanners against a PC, and times how it serves a good one beside them";

constexpr char EXAMPLES[] =
    "Every kind of bad scanner comes twice: beside a good scanner that is being served, which must\n"
    "go on being served; and before it, when the good one must hear that the PC is busy (or, where\n"
    "the bad ones take every connection, is turned away).  After each the PC must serve again.\n"
    "\n"
    "The host on that PC gets thousands of requests: run a host for tests there (quorin-host), or\n"
    "name a --product that no driver serves, so that the library answers by itself.  No other\n"
    "scanner may use the PC meanwhile, unless --not-alone.\n"
    "\n"
    "Only loopback and private addresses are sent to (10.x, 172.16.x to 172.31.x, 192.168.x,\n"
    "169.254.x), unless --public-address, and nothing goes to a group unless --multicast.\n"
    "\n"
    "Examples:\n"
    "  quorin-scanner stress                              this PC, a minute\n"
    "  quorin-scanner stress --to 192.168.1.20 --seconds 600 --json\n"
    "  quorin-scanner stress --kinds slow,reset,storm\n"
    "\n"
    "Exit codes: 0 the PC did as it should; 1 trouble on this machine; 2 wrong command line;\n"
    "3 nothing listens there; 4 the PC is busy or refuses even before; 5 answers did not come in\n"
    "time; 6 answers were wrong.";

bool IsWithin(std::uint32_t number, unsigned first, unsigned second, unsigned bits) {
  const std::uint32_t network = first << 24U | second << 16U;
  return number >> (32U - bits) == network >> (32U - bits);
}

// The address as a number whose highest byte is the first one that is written.
std::uint32_t NumberOf(std::uint32_t address) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(&address);
  return static_cast<std::uint32_t>(bytes[0]) << 24U | static_cast<std::uint32_t>(bytes[1]) << 16U |
         static_cast<std::uint32_t>(bytes[2]) << 8U | bytes[3];
}

void CheckAddress(const StressOptions& options) {
  std::uint32_t address = 0;
  platform::TextToAddress(options.request.link.address.c_str(), &address);
  const std::uint32_t number = NumberOf(address);
  const unsigned firstByte = number >> 24U;
  if (firstByte == 0 || firstByte >= 224) {
    tools::RefuseCommandLine("--to: '" + options.request.link.address +
                             "' is not the address of one PC");
  }
  const bool isPrivate = IsWithin(number, 127, 0, 8) || IsWithin(number, 10, 0, 8) ||
                         IsWithin(number, 172, 16, 12) || IsWithin(number, 192, 168, 16) ||
                         IsWithin(number, 169, 254, 16);
  if (!isPrivate && !options.publicAddress) {
    tools::RefuseCommandLine(
        "--to: '" + options.request.link.address +
        "' is not a private address; --public-address allows it, for a PC that you may disturb");
  }
}

std::vector<const Kind*> ChosenKinds(const std::vector<std::string>& names) {
  std::vector<const Kind*> chosen;
  for (const Kind& kind : Kinds()) {
    if (names.empty() || std::find(names.begin(), names.end(), kind.name) != names.end()) {
      chosen.push_back(&kind);
    }
  }
  return chosen;
}

std::string CheckKind(const std::string& name) {
  std::string list;
  for (const Kind& kind : Kinds()) {
    if (name == kind.name) {
      return {};
    }
    list += std::string(" ") + kind.name;
  }
  return "'" + name + "' is none of" + list;
}

void RunAttack(void* argument) {
  auto* attack = static_cast<Attack*>(argument);
  try {
    attack->kind->run(attack);
  } catch (const std::exception& error) {
    NoteProblem(&attack->tally.problems, std::string("this tool: ") + error.what());
  }
}

// An attack that goes on until this goes out of scope.
class RunningAttack {
 public:
  explicit RunningAttack(Attack* attack) : attack_(attack) {
    if (platform::StartThread(RunAttack, attack, platform::STACK_FOR_HOST_CALLBACKS) == 0) {
      throw Failure(EXIT_LOCAL_TROUBLE, "this machine gives no thread");
    }
  }
  RunningAttack(const RunningAttack&) = delete;
  RunningAttack& operator=(const RunningAttack&) = delete;
  ~RunningAttack() {
    attack_->stop = true;
    platform::WaitForThreads();
  }

 private:
  Attack* attack_;
};

void WaitUntilInPlace(const Attack& attack) {
  const std::int64_t endMs = platform::MonotonicMilliseconds() + IN_PLACE_PATIENCE_MS;
  while (!attack.inPlace && platform::MonotonicMilliseconds() < endMs) {
    platform::SleepMilliseconds(LOOK_EVERY_MS);
  }
}

// Has the PC serve a request and gives the connection; null, with the reason noted, when it does
// not.
OpenConnection TryService(const GoodScanner& scanner, const std::string& when, Service* service) {
  ServedAnswer served;
  try {
    return AwaitService(scanner, &served);
  } catch (const Failure& failure) {
    ++service->missed;
    NoteProblem(&service->problems, when + failure.what());
  }
  return {};
}

// The bad scanners of one kind at one place, for `milliseconds`, and the good one beside them.
void PlayAt(const StressOptions& options, const GoodScanner& scanner, Place place,
            std::int64_t milliseconds, KindResult* result) {
  static auto uids = static_cast<std::uint32_t>(platform::MonotonicMilliseconds());
  Service* service = &result->service[place];
  Attack attack;
  attack.kind = result->kind;
  attack.request = options.request;
  platform::TextToAddress(options.request.link.address.c_str(), &attack.address);
  attack.multicast = options.multicast;
  attack.reachesHost = scanner.expected.statusOut == "OK";
  attack.firstUid = uids;
  OpenConnection connection;
  if (place == PLACE_BESIDE) {
    connection = TryService(scanner, "before the attack: ", service);
  }
  {
    const RunningAttack running(&attack);
    WaitUntilInPlace(attack);
    SendBesideAttack(scanner, *result->kind, place,
                     platform::MonotonicMilliseconds() + milliseconds, std::move(connection),
                     service);
  }
  uids = attack.firstUid;
  result->tally[place] = attack.tally;
  const std::int64_t since = platform::MonotonicMilliseconds();
  TryService(scanner, "afterwards: ", service);
  service->recoveryMs = static_cast<double>(platform::MonotonicMilliseconds() - since);
}

ExitCode RunStress(const StressOptions& options) {
  const SocketUse sockets;
  tools::WatchForInterrupt();
  const std::vector<const Kind*> kinds = ChosenKinds(options.kinds);
  GoodScanner scanner;
  scanner.request = options.request;
  scanner.notAlone = options.notAlone;
  AwaitService(scanner, &scanner.expected);
  const auto shareMs = static_cast<std::int64_t>(options.seconds * 1000) /
                       static_cast<std::int64_t>(kinds.size() * 2);
  bool right = true;
  bool inTime = true;
  for (const Kind* kind : kinds) {
    if (tools::InterruptCame() || tools::OutputFailed()) {
      break;
    }
    KindResult result;
    result.kind = kind;
    PlayAt(options, scanner, PLACE_BESIDE, shareMs, &result);
    if (!kind->datagram) {
      PlayAt(options, scanner, PLACE_BEFORE, shareMs, &result);
    }
    PrintKindResult(options.request.json, result);
    right = right && AnswersWereRight(result);
    inTime = inTime && NothingWasMissed(result);
  }
  const ExitCode timely = inTime ? EXIT_OK : EXIT_TIMED_OUT;
  return right ? timely : EXIT_PROTOCOL_ERROR;
}

}  // namespace

void AddStress(tools::CommandLine* program, Command* chosen) {
  const auto options = std::make_shared<StressOptions>();
  std::string footer = "Kinds:\n";
  for (const Kind& kind : Kinds()) {
    footer += "  " + (kind.name + std::string(14, ' ')).substr(0, 14) + kind.help + "\n";
  }
  tools::CommandLine* command = tools::AddCommand(
      program, "stress", DESCRIPTION, footer + "\n" + EXAMPLES, [options, chosen] {
        CheckAddress(*options);
        chosen->json = options->request.json;
        chosen->run = [options] { return RunStress(*options); };
      });
  AddLinkOptions(command, &options->request);
  tools::AddNumber(
      command,
      {"--seconds", "N", "Time for all the kinds together", "Options", tools::SHOW_DEFAULT},
      &options->seconds, 0.1, 1'000'000.0);
  tools::AddTextList(command, {"--kinds", "LIST", "Only these, with commas between (default all)"},
                     &options->kinds, CheckKind);
  tools::AddText(
      command, {"--product", "NAME", "The scanners' product name", "Options", tools::SHOW_DEFAULT},
      &options->request.fields.productName);
  tools::AddFlag(command, {"--multicast", nullptr, "Flood the group of the search as well"},
                 &options->multicast);
  tools::AddFlag(command,
                 {"--not-alone", nullptr,
                  "Others use the PC and its service restarts: to be turned away proves nothing"},
                 &options->notAlone);
  tools::AddFlag(command, {"--public-address", nullptr, "Allow an address that is not private"},
                 &options->publicAddress);
}

}  // namespace zvqrn::scanner
