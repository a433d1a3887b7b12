// UTF-8 text from the network: whether it is any, and how it is shown to people.  Used by
// quorin-scanner for names of PCs; any thread.
#pragma once

#include <string>

namespace zvqrn::tools {

// True when `bytes` is well-formed UTF-8: no stray or missing bytes, no overlong forms, no
// surrogates, nothing above U+10FFFF.
bool IsUtf8(const std::string& bytes);

// Gives UTF-8 text with its letters as they are, but without anything that could move the cursor,
// hide, or turn the line around: control characters and invisible format characters become
// \u{HHHH}, a backslash \\.  Bytes that are not UTF-8 become \xHH.
std::string EscapeUtf8(const std::string& bytes);

}  // namespace zvqrn::tools
