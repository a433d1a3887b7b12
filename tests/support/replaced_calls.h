// Calls of the platform that a test replaces at link time (ld's --wrap), so that clocks run fast
// and the system refuses what it rarely refuses.  Only seam_tests is linked so.
#pragma once

#include <atomic>
#include <cstdint>

namespace zvqrn::test {

// What the library's clock shows, in milliseconds; 0: it runs as it does.
extern std::atomic<std::int64_t> stoppedClock;

// How often the main connection's thread has begun to wait, and the longest wait of any thread for
// a socket, in milliseconds.
extern std::atomic<std::int32_t> connectionWaits;
extern std::atomic<std::int32_t> longestWait;

// Whether the waits of the main connection's thread go on until they are ended.
extern std::atomic<bool> waitsAreEndless;

// Accepts that are refused, counted while above 0; the connection stays where it is.
extern std::atomic<std::int32_t> refusedAccepts;

// What the system does right after it has been asked whether a peer has gone, once; null: nothing.
extern std::atomic<void (*)()> afterPeerLook;

// Thread starts that go through before one is refused; negative: none is.
extern std::atomic<std::int32_t> threadsBeforeRefusal;

// Sends of the library that transfer nothing before one goes through, counted while above 0.
extern std::atomic<std::int32_t> emptySends;

// What happens at each of them before; null: nothing.
extern std::atomic<void (*)()> beforeSend;

// A byte that counts as the lead byte of a double-byte character; 0: none does.
extern std::atomic<char> leadByte;

// The PC's own address, in network byte order; 0: the system's.
extern std::atomic<std::uint32_t> hostAddress;
// How often it has been read.
extern std::atomic<std::int32_t> addressReads;

// How often the system cannot say that address before it can.
extern std::atomic<std::int32_t> unreadableAddresses;

// The host name has no address at all.
extern std::atomic<bool> resolvesToNothing;

// How many times the system refuses to join a multicast group.
extern std::atomic<std::int32_t> refusedJoins;

// Has the system tell of an address change.
void TellOfAddressChange();

// Windows: the thread that last asked to be told; and whether what cannot be cancelled completes at
// the moment when that is tried.
extern std::atomic<std::uintptr_t> askingThread;
extern std::atomic<bool> completesInstead;

// The test's own thread, whose calls are left alone.
extern std::atomic<std::uintptr_t> testThread;

}  // namespace zvqrn::test
