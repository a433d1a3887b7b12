#include "common/interrupt.h"

#include <csignal>

namespace zvqrn::tools {

namespace {

volatile std::sig_atomic_t interruptCame = 0;

extern "C" void OnInterrupt(int signalNumber) {
  interruptCame = 1;
  std::signal(signalNumber, SIG_DFL);
}

}  // namespace

void WatchForInterrupt() {
  std::signal(SIGINT, OnInterrupt);
  std::signal(SIGTERM, OnInterrupt);
}

bool InterruptCame() {
  return interruptCame != 0;
}

}  // namespace zvqrn::tools
