// Lines of standard input as they come, for a program that has other things to do meanwhile.  A
// thread of its own reads them; it is never waited for, since a read may last until the process
// ends, and keeps nothing of the program's but the event.  The operating system shows through here
// only.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/sync.h"

namespace zvqrn::tools {

// A longer line is dropped, and told of as such.
constexpr std::size_t INPUT_LINE_LIMIT = std::size_t{16} * 1024 * 1024;

struct InputLine {
  std::size_t number;  // from 1
  std::string text;    // without its end, and without a byte order mark
  bool tooLong;
};

// Begins to read, once in a process.  `came` is set whenever there is something to take, and must
// not be closed any more.  False when the system gives no thread or no lock.
bool StartInputLines(platform::Event* came);

// Takes the lines that have come, in their order; false when none will come any more.
bool TakeInputLines(std::vector<InputLine>* lines);

}  // namespace zvqrn::tools
