// quorin-scanner: plays a network scanner towards a PC on which the service runs.
#include <exception>

#include "common/machine_text.h"
#include "common/output.h"
#include "scanner/command/commands.h"

namespace zvqrn::scanner {

namespace {

constexpr char DESCRIPTION[] =
    "Plays a network scanner: finds the PCs on which a host program of ZVQRN runs, sends them\n"
    "push-scan requests, and shows how they answer.";

constexpr char EXAMPLES[] =
    "Examples:\n"
    "  quorin-scanner discover                   which PCs are there?\n"
    "  quorin-scanner doctor                     why is this PC not on the scanner's panel?\n"
    "  quorin-scanner push --to 192.0.2.7        is the PC ready for scans?\n"
    "  quorin-scanner push --help                everything that can be tried\n"
    "  quorin-scanner listen --to 192.0.2.7      what does the host send back?\n"
    "  quorin-scanner explain scan.pcapng        why was my message dropped?\n"
    "  quorin-scanner panel --open               all of that in the browser\n"
    "  quorin-scanner stress --to 192.0.2.7      does the PC survive bad scanners?\n"
    "\n"
    "In --json output each text from a PC has one character (U+00HH) for a byte; only the names\n"
    "that discover and doctor find are read as the UTF-8 that they are.\n"
    "\n";

int Main(const std::vector<std::string>& arguments) {
  Command chosen;
  const auto addCommands = [&](tools::CommandLine* program) {
    AddDiscover(program, &chosen);
    AddDoctor(program, &chosen);
    AddPush(program, &chosen);
    AddListen(program, &chosen);
    AddExplain(program, &chosen);
    AddPanel(program, &chosen);
    AddStress(program, &chosen);
  };
  const tools::ProgramHelp help = {"quorin-scanner", DESCRIPTION,
                                   std::string(EXAMPLES) + EXIT_CODES_HELP,
                                   [] { return "quorin-scanner " QUORIN_VERSION; }};
  int exitCode = EXIT_OK;
  if (!tools::ReadCommandLine(arguments, help, addCommands, {}, &exitCode)) {
    return exitCode;
  }
  try {
    return chosen.run();
  } catch (const Failure& failure) {
    PrintFailure(chosen.json, failure);
    return failure.exitCode;
  }
}

}  // namespace

}  // namespace zvqrn::scanner

int main(int argc, char** argv) {
  using zvqrn::scanner::EXIT_LOCAL_TROUBLE;
  zvqrn::tools::PrepareOutput();
  int exitCode = EXIT_LOCAL_TROUBLE;
  try {
    exitCode = zvqrn::scanner::Main(zvqrn::tools::ReadArguments(argc, argv));
  } catch (const std::exception& error) {
    zvqrn::tools::PrintError(std::string("quorin-scanner: ") + error.what());
  }
  return zvqrn::tools::EndOutput("quorin-scanner", exitCode, EXIT_LOCAL_TROUBLE);
}
