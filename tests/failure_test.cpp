// The service on the real system while that fails it: a whole run, from the load to the unload,
// again and again, each time with another call of one function failing.  What a failure may lead to
// is known from the simulated machine; here nothing may crash, hang or be left behind.

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

#include "base/service_state.h"
#include "platform/entry.h"
#include "platform/thread.h"
#include "support/failing_calls.h"
#include "support/host.h"
#include "support/messages.h"
#include "support/patience.h"
#include "support/process.h"
#include "support/scanner.h"
#include "support/slp_scanner.h"

namespace zvqrn::test {
namespace {

// Whether a failure may change what the scanners hear.
enum Effect { NOTICED, UNNOTICED };
const struct {
  Effect effect;
  int error;
  const char* functions;
} WAYS[] = {
    {NOTICED, EIO,
     "calloc pthread_create socket bind listen accept4 getsockname setsockopt gethostname "
     "getifaddrs pipe2 poll recv send recvfrom sendto"},
    {NOTICED, EMFILE, "fopen if_nametoindex"},
    {UNNOTICED, EMFILE, "eventfd dlopen"},
    {UNNOTICED, ONE_BYTE_ONLY, "recv send"},
    {UNNOTICED, EINTR, "poll recv send recvfrom"},
    {UNNOTICED, EAGAIN, "recv send recvfrom"},
};
constexpr std::int32_t MOST_CALLS = 200;
constexpr int DEADLINE_SECONDS = 120;
constexpr std::int32_t HEARS_WITHIN_MS = 300;

std::int64_t EntriesOf(const char* folder) {
  const std::filesystem::directory_iterator entries(folder);
  return std::distance(begin(entries), end(entries));
}

std::string Ask(Scanner* scanner, std::int32_t patience) {
  scanner->Send(Request(Identity("2.00", "1"), DOCUMENT_V2));
  const std::string answer = scanner->Receive(patience);
  const std::size_t at = answer.find("x-status : ");
  return at == std::string::npos ? "silent" : answer.substr(at + 11, 4);
}

// From the load to the unload; what the scanners have heard.  Calls fail while `isArmed`, but not
// those of this thread outside of the exports.
std::string Live(Host* host, std::int32_t patience) {
  std::string heard;
  const auto asLibrary = [](const auto& call) {
    isSpared = false;
    call();
    isSpared = true;
  };
  service.unloading.store(0);
  asLibrary([] { platform::OnLibraryLoad(); });
  service.getTwainName = [](const char* /*product*/, char* driver) -> std::int32_t {
    return std::snprintf(driver, 34, "Driver") > 0 ? 1 : 0;
  };
  asLibrary([host] { host->Start(); });
  {
    Scanner main(Scanner::MAY_BE_GONE);
    heard += "main " + Ask(&main, patience);
    Scanner extra(Scanner::MAY_BE_GONE);
    heard += ", extra " + Ask(&extra, patience);
  }
  SlpScanner searching("127.0.0.9");
  searching.Send(Encode({1}), "127.0.0.1");
  heard += searching.Receive(patience).empty() ? ", not found" : ", found";
  asLibrary([host] { host->Stop(); });
  asLibrary([] { platform::OnLibraryUnload(false); });
  return heard;
}

const char* const UNTOUCHED = "main 0001, extra 2001, found";
// It gets one receive and one send, whatever becomes of them.
const char* const WITHOUT_EXTRA = "main 0001, extra silent, found";

TEST(Failures, LeaveNothingBehind) {
  ASSERT_TRUE(InPrivateNetwork());
  isSpared = true;
  Host host{host::ServiceLibrary{nullptr, &QRNStartService, &QRNStopService, &QRNSendData,
                                 &QRNGetPCName, &QRNSetPCName}};
  ASSERT_EQ(Live(&host, PATIENCE_MS), UNTOUCHED);
  const std::int64_t descriptors = EntriesOf("/proc/self/fd");
  std::int32_t points = 0;
  for (const auto& way : WAYS) {
    std::istringstream functions(way.functions);
    for (std::string function; functions >> function;) {
      bool met = true;
      // The 1st, 2nd, 3rd, 5th, 8th ... call.
      for (std::int32_t number = 1, next = 2; met && number < MOST_CALLS;
           number = std::exchange(next, number + next)) {
        const std::string label =
            function + " with " + std::to_string(way.error) + ", call " + std::to_string(number);
        SCOPED_TRACE(label);
        EndProcessAfter(DEADLINE_SECONDS, label.c_str());
        failing = FailingCall{function.c_str(), way.error, number};
        callCount = failureCount = 0;
        isArmed = true;
        const std::string heard =
            Live(&host, way.effect == NOTICED ? HEARS_WITHIN_MS : PATIENCE_MS);
        isArmed = false;
        met = failureCount > 0;
        points += met ? 1 : 0;
        EXPECT_TRUE(way.effect == NOTICED || heard == UNTOUCHED || heard == WITHOUT_EXTRA) << heard;
        EXPECT_EQ(EntriesOf("/proc/self/fd"), descriptors);
        EXPECT_TRUE(Eventually([] { return EntriesOf("/proc/self/task") == 1; }));
      }
      EXPECT_EQ(Live(&host, PATIENCE_MS), UNTOUCHED) << "after failures of " << function;
    }
  }
  printf("failure points: %d\n", points);
  EXPECT_GT(points, 80);
}

}  // namespace
}  // namespace zvqrn::test
