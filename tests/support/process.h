// What a test asks of the operating system: counts of this process, and the network around it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/socket.h"

namespace zvqrn::test {

// Threads of this process, and what it holds open: descriptors, or handles under Windows.
std::ptrdiff_t Threads();
std::ptrdiff_t Handles();

// The memory in use, and the processor time used so far.
std::int64_t ResidentKilobytes();
std::int64_t ProcessorMilliseconds();

// Whether every other thread of this process sleeps at this moment: none of them waits for a
// processor.  Not under Windows, as the next.
bool OthersSleep();

// Waits until they all sleep for longer than a moment: what they have begun is done, and nothing
// but a time-out or an event from outside makes them go on.
bool OthersComeToRest();

// True while the library under test, or the utility library that it has loaded, is in this process.
bool IsLoaded();

// A scanner's address, and that of the interface from which a scanner at `address` sends
// multicasts.  Wine truly binds datagram sockets to 127.0.0.1 only, and to every address otherwise.
extern const char* const SCANNER_ADDRESS;
const char* MulticastInterface(const char* address);

// Ends this process with an error and `what` on its standard error, unless it is called again
// within that many seconds; 0 = never.  Does nothing under Windows, where the script has a limit.
void EndProcessAfter(int seconds, const char* what);

// What is put before a test program's command to run it in a network of its own.
extern const char* const PRIVATE_STARTER;

// Runs a command of the shell; fails the test when that fails.  Windows tests find the network as
// scripts/run_wine_tests.sh has made it: nothing is run there.
void RunCommand(const std::string& command);

}  // namespace zvqrn::test
