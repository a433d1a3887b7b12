// The subcommands of quorin-scanner, one file each.  Each adds itself to the program and, when the
// command line names it, leaves behind what is to be run.
#pragma once

#include <functional>

#include "common/command_line.h"
#include "scanner/command/exit_code.h"

namespace zvqrn::scanner {

// Runs a subcommand; gives the program's exit code or throws a Failure.
struct Command {
  std::function<ExitCode()> run;
  bool json = false;  // how a Failure is to be reported
};

// discover: finds PCs.
void AddDiscover(tools::CommandLine* program, Command* chosen);

// doctor: says why this PC may not be found.
void AddDoctor(tools::CommandLine* program, Command* chosen);

// push: sends requests and shows what comes back.
void AddPush(tools::CommandLine* program, Command* chosen);

// listen: keeps a START open and shows the host's data.
void AddListen(tools::CommandLine* program, Command* chosen);

// explain: says what the library does with captured messages, and by which rule.
void AddExplain(tools::CommandLine* program, Command* chosen);

// panel: serves a page with a scanner's panel and the whole exchange.
void AddPanel(tools::CommandLine* program, Command* chosen);

// stress: plays bad scanners against a PC.
void AddStress(tools::CommandLine* program, Command* chosen);

}  // namespace zvqrn::scanner
