// Every test program begins here.

#include <gtest/gtest.h>

#include "platform/socket.h"

int main(int count, char** arguments) {
  testing::InitGoogleTest(&count, arguments);
  // For the scanners, whether or not a service runs.
  return zvqrn::platform::StartSockets() ? RUN_ALL_TESTS() : 1;
}
