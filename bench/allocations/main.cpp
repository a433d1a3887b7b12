// allocation_bench RESULTS: how often the library asks the heap, and how many bytes it copies, for
// one single request from the socket to the host and back.  The library is linked into the program.
#include <chrono>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <thread>

#include "allocations/counted_calls.h"
#include "common/event_client.h"
#include "common/results.h"
#include "zvqrn/zvqrn.h"

namespace zvqrn::bench {
namespace {

constexpr int WARM_UP = 3;
constexpr int REQUESTS = 20;
constexpr std::chrono::milliseconds SETTLE(100);

std::int32_t QRN_CALLBACK OnFilter(const PeerDescription* /*peer*/, void* /*context*/) {
  return 1;
}

std::int32_t QRN_CALLBACK OnEvent(EventHeader* /*header*/, std::int32_t /*kind*/,
                                  const void* /*data*/, std::int32_t /*size*/, void* /*context*/) {
  return QRN_RESPONSE_OK;
}

std::int32_t QRN_CALLBACK OnStatus(std::int32_t /*statusClass*/, std::int32_t /*code*/,
                                   const char* /*message*/, void* /*context*/) {
  return 0;
}

void Measure(Results* results) {
  if (QRNStartService(OnFilter, OnEvent, OnStatus, nullptr, nullptr, nullptr) != 1) {
    throw std::runtime_error("the service does not start");
  }
  {
    EventClient client = ConnectToService();
    for (int i = 0; i < WARM_UP; i++) {
      Exchange(&client);
    }
    std::this_thread::sleep_for(SETTLE);
    counted.allocations = 0;
    counted.releases = 0;
    counted.bytesAllocated = 0;
    counted.bytesCopied = 0;
    for (int i = 0; i < REQUESTS; i++) {
      Exchange(&client);
    }
    // The last answer was there before all of its blocks were freed.
    std::this_thread::sleep_for(SETTLE);
    const auto each = [](const std::atomic<std::uint64_t>& count) {
      return static_cast<double>(count.load()) / REQUESTS;
    };
    results->series = {{"request.allocations", {each(counted.allocations)}},
                       {"request.releases", {each(counted.releases)}},
                       {"request.bytes_allocated", {each(counted.bytesAllocated)}},
                       {"request.bytes_copied", {each(counted.bytesCopied)}},
                       {"request.bytes_on_wire",
                        {static_cast<double>(client.request.bytes.size() + client.answer.size())}}};
  }
  QRNStopService();
}

}  // namespace
}  // namespace zvqrn::bench

int main(int argc, char** argv) {
  zvqrn::bench::isBenchThread = true;
  if (argc != 2) {
    std::fputs("usage: allocation_bench RESULTS\n", stderr);
    return 2;
  }
  try {
    zvqrn::bench::Results results;
    zvqrn::bench::Measure(&results);
    zvqrn::bench::WriteResults(results, argv[1]);
    for (const auto& [name, values] : results.series) {
      std::printf("%-24s %10.1f\n", name.c_str(), values.front());
    }
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "allocation_bench: %s\n", failure.what());
    return 1;
  }
  return 0;
}
