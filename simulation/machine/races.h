// Data races of the rooms: two accesses to the same bytes, one of them a write, with nothing
// between them that orders the threads.  Found by what the threads wait for and not by luck
// (happens-before, Lamport 1978; with one writer and one reader kept for each place, as FastTrack,
// Flanagan and Freund, PLDI 2009, does), so a lock that is left out shows in any order of the
// threads.
//
// The compiler has the rooms tell of each access (-fsanitize=thread); the functions that it calls
// are in races.cpp.  Nothing here changes who runs, so a life is the same with and without.
#pragma once

#include <cstddef>

namespace zvqrn::simulation {

// What one thread has done before Release is known to those who come from Acquire of the same
// object.
void Acquire(const void* object);
void Release(const void* object);

// Begins anew, for memory that is used for the first time.
void BeginRaces();

// The memory in which races are looked for; at most these two.
void WatchArena(const void* begin, std::size_t size);
void WatchRecord(const void* begin, std::size_t size);

}  // namespace zvqrn::simulation
