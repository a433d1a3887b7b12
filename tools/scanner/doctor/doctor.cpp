#include <algorithm>
#include <memory>

#include "common/adapters.h"
#include "common/interrupt.h"
#include "common/output.h"
#include "common/text.h"
#include "common/vocabulary.h"
#include "platform/thread.h"
#include "scanner/command/commands.h"
#include "scanner/doctor/examine.h"
#include "scanner/doctor/ticket.h"
#include "scanner/wire/reply_socket.h"

namespace zvqrn::scanner {

namespace {

struct DoctorOptions {
  Examination examination;
  std::string scanner;  // its address, as text; empty: none
  std::string reportFile;
  bool watch = false;
  bool json = false;
};

constexpr std::int32_t WATCH_REST_MS = 2000;
constexpr std::int32_t LOOK_EVERY_MS = 100;

constexpr char DESCRIPTION[] = "Says why this PC may not show on a scanner's panel";

constexpr char EXAMPLES[] =
    "Looks at the PC on which it runs, while the host program runs: adapters and addresses, which of\n"
    "them is announced and why, the PC's name, who holds UDP and TCP port 2968, the firewall where it\n"
    "can be read, whether the group 239.255.255.253 can be joined, whether the service answers a\n"
    "request to the PC's own address and one to the group, whether its event port takes a connection,\n"
    "and whether there is a utility library.  Each finding is ok, a note, a warning or a problem, with\n"
    "what to do about it and the place in docs/network.md that tells more.\n"
    "\n"
    "With --product it also searches as a scanner of that product does; when nobody answers, it asks\n"
    "the utility library that the host has loaded, which runs the maker's code in this program; never\n"
    "that of another user's host.\n"
    "\n"
    "SENDS TO THE NETWORK: joining the group tells the routers, and the multicast request reaches all\n"
    "PCs of this network, which answer it.  With --local nothing leaves this PC.\n"
    "For the length of the multicast request (--timeout) direct requests of scanners reach this\n"
    "program instead of the service, and the event port is taken for a moment.  The request that it\n"
    "sends there is for a product that does not exist, which the library answers without the host.\n"
    "\n"
    "It cannot see a firewall that lets this PC's own traffic pass.  If nothing is wrong here, run\n"
    "'quorin-scanner discover --to ADDRESS' on another machine of the scanner's network; let UDP and\n"
    "TCP port 2968 in on this PC.\n"
    "\n"
    "Examples:\n"
    "  quorin-scanner doctor\n"
    "  quorin-scanner doctor --product XS-200 --scanner 192.0.2.10\n"
    "  quorin-scanner doctor --local --report ticket.txt\n"
    "  quorin-scanner doctor --watch                  until the PC is found\n"
    "  quorin-scanner doctor --json > findings.jsonl\n"
    "\n"
    "Exit codes: 0 no problem and the service answers (there may be warnings); 1 trouble on this\n"
    "machine (no sockets); 2 wrong command line; 3 no service answers, and nothing but its absence\n"
    "explains it; 4 a problem was found.";

void Rest(std::int32_t milliseconds) {
  for (; milliseconds > 0 && !tools::InterruptCame(); milliseconds -= LOOK_EVERY_MS) {
    platform::SleepMilliseconds(LOOK_EVERY_MS);
  }
}

// Looks again until nothing is wrong any more, or somebody has seen enough.
ExitCode Watch(const DoctorOptions& options, ExitCode exitCode, Account* account,
               Patient* patient) {
  tools::WatchForInterrupt();
  while (exitCode != EXIT_OK && !tools::InterruptCame() && !tools::OutputFailed()) {
    Rest(WATCH_REST_MS);
    Account now;
    Patient found;
    now.json = options.json;
    now.quiet = true;
    exitCode = Examine(options.examination, &now, &found);
    PrintChanges(*account, now);
    *account = now;
    *patient = found;
  }
  account->quiet = false;
  PrintSummary(account, exitCode);
  return exitCode;
}

ExitCode RunDoctor(const DoctorOptions& options) {
  const SocketUse use;
  if (!options.reportFile.empty()) {
    CheckTicket(options.reportFile);
  }
  Account account;
  Patient patient;
  account.json = options.json;
  ExitCode exitCode = Examine(options.examination, &account, &patient);
  if (options.watch && exitCode != EXIT_OK) {
    exitCode = Watch(options, exitCode, &account, &patient);
  }
  if (!options.reportFile.empty()) {
    WriteTicket(options.reportFile, account, patient);
    tools::PrintError("The report is in '" + options.reportFile +
                      "'; its first lines say what is in it.");
  }
  return exitCode;
}

}  // namespace

void AddDoctor(tools::CommandLine* program, Command* chosen) {
  const auto options = std::make_shared<DoctorOptions>();
  tools::CommandLine* command =
      tools::AddCommand(program, "doctor", DESCRIPTION, EXAMPLES, [options, chosen] {
        platform::TextToAddress(options->scanner.c_str(), &options->examination.scanner);
        chosen->json = options->json;
        chosen->run = [options] { return RunDoctor(*options); };
      });
  tools::AddRepeatable(
      command, {"--product", "NAME", "Is the PC found by a scanner of this product?  Repeatable"},
      [options](const std::string& product) {
        const std::string problem = tools::NameProblem(product);
        if (!problem.empty()) {
          tools::RefuseCommandLine("--product: " + problem);
        }
        options->examination.products.push_back(product);
      });
  tools::AddHost(command,
                 {"--scanner", "HOST", "Does this scanner reach the address that is announced?"},
                 &options->scanner);
  tools::AddText(command, {"--report", "FILE", "Write everything to this file, for a ticket"},
                 &options->reportFile, [](const std::string& text) {
                   return text.empty() ? std::string("the name of a file is missing")
                                       : std::string();
                 });
  tools::AddFlag(command, {"--watch", nullptr, "Look again until the PC is found; print changes"},
                 &options->watch);
  tools::AddFlag(command,
                 {"--local", nullptr, "No multicast: only requests to this PC's own address"},
                 &options->examination.local);
  tools::AddNumber(
      command, {"--timeout", "MS", "Longest wait for each answer", "Options", tools::SHOW_DEFAULT},
      &options->examination.checks.timeoutMs, 1, 3'600'000);
  tools::AddFlag(command, {"--json", nullptr, "Print one JSON object a line"}, &options->json);
  tools::AddFlag(command,
                 {"--trace", nullptr, "Show every byte sent and received (standard error)"},
                 &options->examination.checks.trace);
}

}  // namespace zvqrn::scanner
