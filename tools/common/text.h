// Text for people and for scripts: what came from the network or from the library is made harmless
// before it is printed (common/output.h).  Used by quorin-host and quorin-scanner; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace zvqrn::tools {

// Gives `bytes` as printable ASCII: a backslash becomes \\, other bytes \r, \n, \t or \xHH, so that
// no text can move the cursor or pass for another line.
std::string EscapeBytes(const std::string& bytes);
// The same between double quotes.
std::string QuoteBytes(const std::string& bytes);

// Gives a dump of `bytes`: offset, sixteen bytes in hex, the printable ones as characters; each
// line begins with `indent` and ends in a line feed.
std::string HexDump(const std::string& bytes, const std::string& indent);

// Gives the text of a fixed-size field up to its first NUL.
std::string FieldText(const char* field, std::size_t size);

// Reads a whole file; false when it cannot be read.
bool ReadFileBytes(const std::string& path, std::string* bytes);

// Reads a decimal number that fills the whole text; false otherwise, or when it does not fit.
bool ParseNumber(const std::string& text, std::int32_t* number);

// Compares without regard to the case of ASCII letters.
bool EqualsIgnoringCase(const std::string& left, const std::string& right);

// Gives `text` without the spaces and tabs at both ends.
std::string TrimBlanks(const std::string& text);

}  // namespace zvqrn::tools
