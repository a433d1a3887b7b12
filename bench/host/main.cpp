// bench_host LIBRARY: a host program for the benchmarks.  It does what each line of its input says
// and answers with the result (1: done) and the nanoseconds that it took; at the end of its input
// it ends.  Its callbacks return at once, unless those of STARTs are held.
//
//   load, start, stop     the library and its service
//   send                  from now on the callback of each START sends data before it returns
//   hold, held N, release the callbacks of STARTs wait; until so many do; they wait no longer
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#include "common/messages.h"
#include "host/service_library.h"
#include "platform/sync.h"
#include "platform/thread.h"

namespace {

using namespace zvqrn;

constexpr std::int32_t PATIENCE_MS = 20000;

// What the callbacks look at; the main thread changes it.
struct Behaviour {
  host::ServiceLibrary library;
  std::atomic<bool> sends{false};
  std::atomic<bool> holds{false};
  std::atomic<std::int32_t> held{0};
  platform::Event* mayReturn = nullptr;  // what held callbacks wait for
};

std::int32_t QRN_CALLBACK OnFilter(const PeerDescription* /*peer*/, void* /*context*/) {
  return 1;
}

std::int32_t QRN_CALLBACK OnEvent(EventHeader* header, std::int32_t /*kind*/, const void* /*data*/,
                                  std::int32_t /*size*/, void* context) {
  auto* behaviour = static_cast<Behaviour*>(context);
  if (header->subevent != SUBEVENT_START) {
    return QRN_RESPONSE_OK;
  }
  if (behaviour->sends) {
    EventHeader copy = *header;
    if (behaviour->library.sendData(&copy, bench::HOST_DATA, bench::HOST_DATA_SIZE) != 1) {
      return QRN_RESPONSE_ERROR;
    }
  }
  if (!behaviour->holds) {
    return QRN_RESPONSE_OK;
  }
  behaviour->held++;
  const bool mayReturn =
      platform::WaitEvent(behaviour->mayReturn, PATIENCE_MS) == platform::SYNC_SIGNALLED;
  behaviour->held--;
  return mayReturn ? QRN_RESPONSE_OK : QRN_RESPONSE_ERROR;
}

std::int32_t QRN_CALLBACK OnStatus(std::int32_t /*statusClass*/, std::int32_t /*code*/,
                                   const char* message, void* /*context*/) {
  std::fprintf(stderr, "bench_host: %s\n", message);
  return 0;
}

std::int32_t Load(const std::string& path, Behaviour* behaviour) {
  std::string why;
  if (!host::LoadServiceLibrary(path, &behaviour->library, &why)) {
    std::fprintf(stderr, "bench_host: %s\n", why.c_str());
    return 0;
  }
  return 1;
}

std::int32_t WaitForHeld(const Behaviour& behaviour, long count) {
  for (std::int32_t waited = 0; behaviour.held < count; waited++) {
    if (waited == PATIENCE_MS) {
      return 0;
    }
    platform::SleepMilliseconds(1);
  }
  return 1;
}

std::int32_t Obey(const std::string& order, const std::string& path, Behaviour* behaviour) {
  constexpr char HELD[] = "held ";
  if (order == "load") {
    return Load(path, behaviour);
  }
  if (behaviour->library.module == nullptr) {
    std::fputs("bench_host: nothing is loaded\n", stderr);
    return 0;
  }
  if (order == "start") {
    return behaviour->library.startService(OnFilter, OnEvent, OnStatus, nullptr, behaviour,
                                           nullptr);
  }
  if (order == "stop") {
    return behaviour->library.stopService();
  }
  if (order.rfind(HELD, 0) == 0) {
    return WaitForHeld(*behaviour, std::strtol(order.c_str() + sizeof HELD - 1, nullptr, 10));
  }
  if (order == "send") {
    behaviour->sends = true;
  } else if (order == "hold") {
    behaviour->sends = false;
    platform::ClearEvent(behaviour->mayReturn);
    behaviour->holds = true;
  } else if (order == "release") {
    behaviour->holds = false;
    platform::SignalEvent(behaviour->mayReturn);
  } else {
    return 0;
  }
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: bench_host LIBRARY\n", stderr);
    return 2;
  }
  using Clock = std::chrono::steady_clock;
  static Behaviour behaviour;
  behaviour.mayReturn = platform::MakeEvent();
  if (behaviour.mayReturn == nullptr) {
    std::fputs("bench_host: the system gives no event\n", stderr);
    return 1;
  }
  std::string order;
  while (std::getline(std::cin, order)) {
    if (!order.empty() && order.back() == '\r') {
      order.pop_back();
    }
    const Clock::time_point begin = Clock::now();
    const std::int32_t result = Obey(order, argv[1], &behaviour);
    const std::chrono::nanoseconds time = Clock::now() - begin;
    std::cout << result << ' ' << time.count() << std::endl;
  }
  return 0;
}
