// bench_host LIBRARY: a host program for the benchmarks.  It does what each line of its input says,
// "load", "start" or "stop", and answers with the result and the nanoseconds that it took; at the
// end of its input it ends.  Its callbacks return at once.
#include <chrono>
#include <cstdio>
#include <iostream>
#include <string>

#include "host/service_library.h"

namespace {

std::int32_t QRN_CALLBACK OnFilter(const PeerDescription* /*peer*/, void* /*context*/) {
  return 1;
}

std::int32_t QRN_CALLBACK OnEvent(EventHeader* /*header*/, std::int32_t /*kind*/,
                                  const void* /*data*/, std::int32_t /*size*/, void* /*context*/) {
  return QRN_RESPONSE_OK;
}

std::int32_t QRN_CALLBACK OnStatus(std::int32_t /*statusClass*/, std::int32_t /*code*/,
                                   const char* message, void* /*context*/) {
  std::fprintf(stderr, "bench_host: %s\n", message);
  return 0;
}

std::int32_t Obey(const std::string& order, const std::string& path,
                  zvqrn::host::ServiceLibrary* library) {
  std::string why;
  if (order == "load") {
    const bool loaded = zvqrn::host::LoadServiceLibrary(path, library, &why);
    if (!loaded) {
      std::fprintf(stderr, "bench_host: %s\n", why.c_str());
    }
    return loaded ? 1 : 0;
  }
  if (library->module == nullptr) {
    std::fputs("bench_host: nothing is loaded\n", stderr);
    return 0;
  }
  if (order == "start") {
    return library->startService(OnFilter, OnEvent, OnStatus, nullptr, nullptr, nullptr);
  }
  return order == "stop" ? library->stopService() : 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: bench_host LIBRARY\n", stderr);
    return 2;
  }
  using Clock = std::chrono::steady_clock;
  zvqrn::host::ServiceLibrary library;
  std::string order;
  while (std::getline(std::cin, order)) {
    if (!order.empty() && order.back() == '\r') {
      order.pop_back();
    }
    const Clock::time_point begin = Clock::now();
    const std::int32_t result = Obey(order, argv[1], &library);
    const std::chrono::nanoseconds time = Clock::now() - begin;
    std::cout << result << ' ' << time.count() << std::endl;
  }
  return 0;
}
