// quorin-host: a host program for trying things out.  Loads the library, starts the service, waits
// until it is to end, stops the service.
#include <memory>

#include "common/input_lines.h"
#include "common/interrupt.h"
#include "common/machine_text.h"
#include "common/output.h"
#include "common/port_owner.h"
#include "host/asking.h"
#include "host/callbacks.h"
#include "host/event_log.h"
#include "host/exit_codes.h"
#include "platform/clock.h"

namespace zvqrn::host {

namespace {

constexpr std::uint16_t SERVICE_PORT = 2968;
// How often the main loop looks for the wish to end and for data that is due.
constexpr std::int32_t LOOK_EVERY_MS = 20;

std::string PcName(const ServiceLibrary& library) {
  std::int32_t length = 0;
  if (library.getPcName(nullptr, &length) != 1 || length <= 0) {
    return {};
  }
  std::string name(static_cast<std::size_t>(length), '\0');
  return library.getPcName(name.data(), &length) == 1 ? name : std::string();
}

// Who keeps a service from the port; empty when nobody does, or the system does not tell.
std::string PortHolders(tools::PortKind kind) {
  std::vector<tools::PortOwner> owners;
  tools::FindPortOwners(kind, SERVICE_PORT, &owners);
  std::string holders;
  for (const tools::PortOwner& owner : owners) {
    holders += (holders.empty() ? "" : " and ") + tools::OwnerText(owner);
  }
  return holders;
}

bool ToldNoNetwork(HostState* state) {
  const HeldLock lock = LockState(state);
  return state->toldNoNetwork;
}

std::string WhyNotStarted(bool toldNoNetwork) {
  if (toldNoNetwork) {
    return "this PC has no usable address, only its loopback address; connect it to a network";
  }
  const std::string tcpHolders = PortHolders(tools::PORT_TCP_LISTENING);
  if (!tcpHolders.empty()) {
    return "TCP port 2968 is held by " + tcpHolders;
  }
  const std::string udpHolders = PortHolders(tools::PORT_UDP);
  if (!udpHolders.empty()) {
    return "UDP port 2968 is held by " + udpHolders;
  }
  return "the PC's name or address could not be had, or a port 2968 is taken";
}

bool IsFinished(HostState* state) {
  const HeldLock lock = LockState(state);
  const std::int32_t limit = state->options->requests;
  return limit > 0 && state->answered >= limit && state->dueSends.empty();
}

// When the host ends, and when it only stops and starts anew; both of the monotonic clock, 0:
// never.
struct Deadlines {
  std::int64_t endMs = 0;
  std::int64_t restartMs = 0;
};

std::int64_t DeadlineIn(double seconds) {
  return seconds > 0 ? platform::MonotonicMilliseconds() + static_cast<std::int64_t>(seconds * 1000)
                     : 0;
}

bool HasPassed(std::int64_t deadlineMs) {
  return deadlineMs > 0 && platform::MonotonicMilliseconds() >= deadlineMs;
}

// True when the host is to end, false when its service is to be restarted.
bool WaitUntilFinished(HostState* state, const Deadlines& deadlines) {
  while (!tools::InterruptCame() && !tools::OutputFailed() && !IsFinished(state) &&
         !HasPassed(deadlines.endMs)) {
    if (HasPassed(deadlines.restartMs)) {
      return false;
    }
    platform::WaitEvent(state->changed, LOOK_EVERY_MS);
    platform::ClearEvent(state->changed);
    SendWhatIsDue(state);
    if (state->options->asks && !TakeWords(state)) {
      break;
    }
  }
  return true;
}

// Gives the service the name that the options want, says what it is called, and waits.  False when
// the name is not taken.
bool Serve(const HostOptions& options, const ServiceLibrary& library, HostState* state,
           const Deadlines& deadlines, bool* finished) {
  const auto nameLength = static_cast<std::int32_t>(options.pcName.size());
  *finished = true;
  if (nameLength > 0 && library.setPcName(options.pcName.data(), nameLength) != 1) {
    tools::PrintError("The service did not take '" + tools::FromLibraryText(options.pcName) +
                      "' as the PC's name.");
    return false;
  }
  {
    const std::string pcName = PcName(library);
    const HeldLock lock = LockState(state);
    LogStarted(options, pcName, state->toldNoNetwork);
  }
  *finished = WaitUntilFinished(state, deadlines);
  return true;
}

// From a start of the service to its stop; `library` stays loaded.
int RunServiceOnce(const HostOptions& options, const ServiceLibrary& library, HostState* state,
                   const Deadlines& deadlines, bool* finished) {
  state->asksNoMore = false;
  if (library.startService(OnPeer, OnScanEvent, OnStatus, state, state, state) != 1) {
    tools::PrintError("The service did not start: " + WhyNotStarted(ToldNoNetwork(state)) + ".");
    *finished = true;
    return EXIT_NO_SERVICE;
  }
  int exitCode = Serve(options, library, state, deadlines, finished) ? EXIT_OK : EXIT_FAILED;
  // The stop waits for the callbacks, and these for words that nobody takes any more.
  AskNoMore(state);
  const std::int32_t result = library.stopService();
  const HeldLock lock = LockState(state);
  LogStopped(options.json, result, state->received);
  // A service that still waits for an address has nothing to stop and says so.
  if (result != 1 && !state->toldNoNetwork) {
    tools::PrintError("The service did not stop as it should.");
    exitCode = EXIT_FAILED;
  }
  state->toldNoNetwork = false;
  return exitCode;
}

int RunService(const HostOptions& options, const ServiceLibrary& library, HostState* state) {
  Deadlines deadlines;
  deadlines.endMs = DeadlineIn(options.seconds);
  int exitCode = EXIT_OK;
  bool finished = false;
  while (exitCode == EXIT_OK && !finished) {
    deadlines.restartMs = DeadlineIn(options.restartSeconds);
    exitCode = RunServiceOnce(options, library, state, deadlines, &finished);
  }
  return exitCode;
}

int Run(const HostOptions& options) {
  ServiceLibrary library;
  std::string why;
  if (!LoadServiceLibrary(LibraryPath(options), &library, &why)) {
    tools::PrintError("The library cannot be used: " + why + ".");
    return EXIT_NO_LIBRARY;
  }
  const std::unique_ptr<ServiceLibrary, decltype(&UnloadServiceLibrary)> loaded(
      &library, UnloadServiceLibrary);
  const std::unique_ptr<platform::Semaphore, decltype(&platform::CloseSemaphore)> lock(
      platform::MakeSemaphore(1, 1), platform::CloseSemaphore);
  std::unique_ptr<platform::Event, decltype(&platform::CloseEvent)> changed(platform::MakeEvent(),
                                                                            platform::CloseEvent);
  if (lock == nullptr || changed == nullptr) {
    tools::PrintError("The system gives no semaphore or event.");
    return EXIT_FAILED;
  }
  HostState state;
  state.options = &options;
  state.library = &library;
  state.lock = lock.get();
  state.changed = changed.get();
  if (options.asks) {
    // The reading goes on to the end of the process.
    state.changed = changed.release();
    if (!tools::StartInputLines(state.changed)) {
      tools::PrintError("The system gives no thread.");
      return EXIT_FAILED;
    }
  }
  return RunService(options, library, &state);
}

}  // namespace

}  // namespace zvqrn::host

int main(int argc, char** argv) {
  zvqrn::tools::PrepareOutput();
  zvqrn::host::HostOptions options;
  int exitCode = zvqrn::host::EXIT_OK;
  if (zvqrn::host::ReadOptions(zvqrn::tools::ReadArguments(argc, argv), &options, &exitCode)) {
    zvqrn::tools::WatchForInterrupt();
    exitCode = zvqrn::host::Run(options);
  }
  return zvqrn::tools::EndOutput("quorin-host", exitCode, zvqrn::host::EXIT_FAILED);
}
