// Every test program begins here.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "platform/socket.h"
#include "support/process.h"
#include "support/surroundings.h"

namespace {

// No test takes that long, on a busy machine and with a sanitiser either.
constexpr int TEST_LIMIT_SECONDS = 400;

// Ends the program in a test that waits without an end, and says which one it was.
class EndWatch : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo& test) override {
    const std::string name = std::string(test.test_suite_name()) + "." + test.name();
    zvqrn::test::EndProcessAfter(TEST_LIMIT_SECONDS, name.c_str());
  }
  void OnTestEnd(const testing::TestInfo& /*test*/) override {
    zvqrn::test::EndProcessAfter(0, "");
  }
};

}  // namespace

int main(int count, char** arguments) {
  const std::vector<std::string> command(arguments, arguments + count);
  testing::InitGoogleTest(&count, arguments);
  // A list of the tests can be had anywhere.
  const std::string why = testing::GTEST_FLAG(list_tests) ? "" : zvqrn::test::WhyNotHere(command);
  if (!why.empty()) {
    fprintf(stderr, "%s\n", why.c_str());
    return 2;
  }
  testing::UnitTest::GetInstance()->listeners().Append(new EndWatch);
  // The thread sanitiser starts a thread of its own with the first, which tests that count threads
  // must not take for the library's.
  std::thread([] {}).join();
  // For the scanners, whether or not a service runs.
  return zvqrn::platform::StartSockets() ? RUN_ALL_TESTS() : 1;
}
