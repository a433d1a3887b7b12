// Where a tool prints: lines on standard output and standard error, in UTF-8.  What cannot be
// written is remembered, so that a tool whose output is lost does not end as if all were well.  Any
// thread.  The operating system shows through here only.
#pragma once

#include <string>

namespace zvqrn::tools {

// To be called first: a reader that has gone makes writing fail, and does not end the program.
void PrepareOutput();

// The time now, in UTC: "2026-11-22T22:44:17.773Z".
std::string TimeText();

// From now on each line printed begins with the time, but for those of JSON, which has it inside.
void PrintTimes();

// Prints one line to standard output and flushes it at once.
void PrintLine(const std::string& line);

// Prints one line to standard error.
void PrintError(const std::string& line);

// Prints one line to standard output as it is, whether or not others have the time.
void PrintBareLine(const std::string& line);

// True when something could not be written; what only prints may end then.
bool OutputFailed();

// To be called last: gives the program's exit code, which is `failureCode` instead of 0 when
// something could not be written; says so on standard error.
int EndOutput(const char* program, int exitCode, int failureCode);

}  // namespace zvqrn::tools
