#include "common/interrupt.h"

#include <csignal>

#if defined(_WIN32)
#include "platform/windows/windows_headers.h"
#endif

namespace zvqrn::tools {

namespace {

volatile std::sig_atomic_t interruptCame = 0;

#if defined(_WIN32)

// Windows calls it on a thread of its own.
BOOL WINAPI OnConsoleEvent(DWORD event) {
  if (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT) {
    const bool first = interruptCame == 0;
    interruptCame = 1;
    return first ? TRUE : FALSE;
  }
  // The console closes, or the user logs off: the process ends when this returns, and after some
  // seconds in any case.  Until then the tool may end in order.
  interruptCame = 1;
  Sleep(INFINITE);
  return TRUE;
}

#else

// A terminal that closes may say so twice, and nobody is there to be impatient.
extern "C" void OnInterrupt(int signalNumber) {
  interruptCame = 1;
  std::signal(signalNumber, signalNumber == SIGHUP ? SIG_IGN : SIG_DFL);
}

#endif

}  // namespace

void WatchForInterrupt() {
#if defined(_WIN32)
  SetConsoleCtrlHandler(OnConsoleEvent, TRUE);
#else
  std::signal(SIGINT, OnInterrupt);
  std::signal(SIGTERM, OnInterrupt);
  // nohup has it ignored.
  if (std::signal(SIGHUP, OnInterrupt) == SIG_IGN) {
    std::signal(SIGHUP, SIG_IGN);
  }
#endif
}

bool InterruptCame() {
  return interruptCame != 0;
}

}  // namespace zvqrn::tools
