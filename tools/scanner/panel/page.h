// The page as it was built in: CMake makes page.cpp of the files in page/.
#pragma once

namespace zvqrn::scanner {

extern const char* const PAGE_HTML;  // with @STYLE@, @WORDS@, @SCRIPT@ and @NONCE@ to fill in
extern const char* const PAGE_STYLE;
extern const char* const PAGE_WORDS;
extern const char* const PAGE_SCRIPT;

}  // namespace zvqrn::scanner
