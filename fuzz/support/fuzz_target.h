// What every target shares.  A target defines FuzzOne, which libFuzzer calls with one input after
// the other, and checks its properties with REQUIRE: one that does not hold is a finding.
//
// The calls of the platform that a target must steer are replaced at link time (ld's --wrap): one
// connection, and threads that run when the target runs them.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstring>
#include <functional>

#include "base/service_state.h"
#include "base/text.h"
#include "eventproto/message_head.h"
#include "eventproto/protocol.h"
#include "support/suspicious_block.h"

#define REQUIRE(condition) ((condition) ? void() : std::abort())

namespace zvqrn::fuzz {

using namespace test;

// Handles one input.  Numbers are taken from its end and texts from its beginning, so that a seed
// is a real message with a few bytes behind it.
void FuzzOne(FuzzedDataProvider* data);

// Bytes that may be none.
std::string Bytes(const void* bytes, std::int32_t length);

// The head at the beginning of a message, or null, and a header in it, or "".
OwnedParsedMessage HeadOf(const SuspiciousBlock& message);
std::string Header(const OwnedParsedMessage& parsed, const char* name);

struct FakePlatform {
  std::string incoming;             // what the peer sends before it closes its side
  std::vector<std::uint16_t> cuts;  // bytes of each receive in turn, over and over; 0 is a pause
  std::size_t receives;             // so far
  std::vector<std::function<void()>> threads;  // started, not yet run
};

// As new for every input.
extern FakePlatform fake;

}  // namespace zvqrn::fuzz
