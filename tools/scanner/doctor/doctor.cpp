#include <memory>

#include "common/text.h"
#include "scanner/command/commands.h"
#include "scanner/doctor/checks.h"
#include "scanner/wire/reply_socket.h"

namespace zvqrn::scanner {

namespace {

struct DoctorOptions {
  bool local = false;
  bool json = false;
  std::int32_t timeoutMs = 2500;
  bool trace = false;
};

constexpr char DESCRIPTION[] = "Says why this PC may not show on a scanner's panel";

constexpr char EXAMPLES[] =
    "Looks at the PC on which it runs, while the host program runs: adapters and addresses, which of\n"
    "them is announced, who holds UDP and TCP port 2968, whether the group 239.255.255.253 can be\n"
    "joined, whether the service answers a request to the PC's own address and one to the group, and\n"
    "whether its event port takes a connection.  Each finding is ok, a warning or a problem, with what\n"
    "to do about it.\n"
    "\n"
    "SENDS TO THE NETWORK: joining the group tells the routers, and the multicast request reaches all\n"
    "PCs of this network, which answer it.  With --local nothing leaves this PC.\n"
    "For the length of the multicast request (at most --timeout) direct requests of scanners reach this\n"
    "program instead of the service, and the event port is taken for a moment.\n"
    "\n"
    "It cannot see a firewall that lets this PC's own traffic pass.  If nothing is wrong here, run\n"
    "'quorin-scanner discover --to ADDRESS' on another machine of the scanner's network; let UDP and\n"
    "TCP port 2968 in on this PC.\n"
    "\n"
    "Examples:\n"
    "  quorin-scanner doctor\n"
    "  quorin-scanner doctor --local\n"
    "  quorin-scanner doctor --json > findings.jsonl\n"
    "\n"
    "Exit codes: 0 no problem and the service answers (there may be warnings); 1 trouble on this\n"
    "machine (no sockets); 2 wrong command line; 3 no service answers, and nothing but its absence\n"
    "explains it; 4 a problem was found.";

// The part that asks the service; `address` is the PC's own.
void CheckService(Account* account, const DoctorOptions& options, std::uint32_t address,
                  bool portHeld) {
  const ServiceChecks checks{address, portHeld, options.timeoutMs, options.trace};
  std::uint16_t eventPort = CheckDirectRequest(account, checks);
  if (!options.local) {
    const std::uint16_t learntPort = CheckGroupRequest(account, checks);
    eventPort = eventPort == 0 ? learntPort : eventPort;
  }
  if (eventPort != 0) {
    CheckEventPort(account, checks, eventPort);
  }
}

ExitCode RunDoctor(const DoctorOptions& options) {
  const SocketUse use;
  Account account;
  account.json = options.json;
  const Adapters adapters = CheckAdapters(&account);
  const std::uint32_t address = CheckAnnouncedAddress(&account, adapters);
  const bool portHeld = CheckPorts(&account);
  if (!options.local) {
    CheckGroup(&account);
  }
  if (address != 0) {
    CheckService(&account, options, address, portHeld);
  }
  ExitCode exitCode = EXIT_OK;
  if (account.problems > 0) {
    exitCode = EXIT_PROBLEM_FOUND;
  } else if (!account.answered) {
    exitCode = EXIT_NOTHING_THERE;
  }
  PrintSummary(account, exitCode);
  return exitCode;
}

}  // namespace

void AddDoctor(tools::CommandLine* program, Command* chosen) {
  const auto options = std::make_shared<DoctorOptions>();
  tools::CommandLine* command =
      tools::AddCommand(program, "doctor", DESCRIPTION, EXAMPLES, [options, chosen] {
        chosen->json = options->json;
        chosen->run = [options] { return RunDoctor(*options); };
      });
  tools::AddFlag(command,
                 {"--local", nullptr, "No multicast: only requests to this PC's own address"},
                 &options->local);
  tools::AddNumber(
      command, {"--timeout", "MS", "Longest wait for each answer", "Options", tools::SHOW_DEFAULT},
      &options->timeoutMs, 1, 3'600'000);
  tools::AddFlag(command, {"--json", nullptr, "Print one JSON object a line"}, &options->json);
  tools::AddFlag(command,
                 {"--trace", nullptr, "Show every byte sent and received (standard error)"},
                 &options->trace);
}

}  // namespace zvqrn::scanner
