// The words of the event protocol as the tools send, read and print them: header names, codes, and
// the words of the documents with their numbers.  Spelled here once for quorin-host and
// quorin-scanner, and apart from the library's own, so that the two check each other;
// scripts/check_documents.sh compares them, and the documents and the dissector with both.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace zvqrn::tools {

constexpr char HEADER_CONTENT_TYPE[] = "Content-Type";
constexpr char HEADER_CONTENT_LENGTH[] = "Content-Length";
constexpr char HEADER_SERVER[] = "Server";
constexpr char HEADER_PROTOCOL_NAME[] = "x-protocol-name";
constexpr char HEADER_PROTOCOL_VERSION[] = "x-protocol-version";
constexpr char HEADER_SUBEVENT[] = "x-subevent";
constexpr char HEADER_UID[] = "x-uid";
constexpr char HEADER_PARENT_UID[] = "x-parent-uid";
constexpr char HEADER_STATUS[] = "x-status";

constexpr char PROTOCOL_NAME[] = "Zorva Network Service Protocol";
constexpr char CONTENT_TYPE[] = "application/octet-stream";
constexpr char VERSION_1[] = "1.00";
constexpr char VERSION_2[] = "2.00";
constexpr char SUBEVENT_START_WORD[] = "START";
constexpr char SUBEVENT_END_WORD[] = "END";

// The most bytes of a uid, and of a product name or address in a document.
constexpr std::size_t UID_LIMIT = 19;
constexpr std::size_t NAME_LIMIT = 31;
// The largest measure of a document.
constexpr std::int32_t MEASURE_LIMIT = 999'999'999;

// A word of a document and its number in the host's records; `meaning` is null where the word says
// it all.
struct Word {
  const char* text;
  std::int32_t number;
  const char* meaning;
};

struct Words {
  const Word* first;
  std::size_t count;
  const Word* begin() const { return first; }
  const Word* end() const { return first + count; }
};

extern const Words IMAGE_FORMATS;
extern const Words COLOR_TYPES;
extern const Words LOAD_PAPERS;
extern const Words PAPER_TYPES;
// The answers that StatusOut can hold, and BUSY, which a host can give but StatusOut never holds.
extern const Words STATUS_OUT_WORDS;
extern const Word BUSY_ANSWER;

// The word of this text, in whatever case, or of this number; null when there is none.
const Word* FindWord(const Words& words, const std::string& text);
const Word* FindWord(const Words& words, std::int32_t number);

// The texts of the words with `separator` between them.
std::string ListWords(const Words& words, const std::string& separator);

constexpr char STATUS_ACCEPTED[] = "0001";
constexpr char STATUS_ACCEPTED_MINOR[] = "0002";
constexpr char STATUS_BAD_VERSION[] = "1001";
constexpr char STATUS_NO_BODY[] = "1003";
constexpr char STATUS_BAD_HEADERS[] = "1004";
constexpr char STATUS_BUSY[] = "2001";
constexpr char STATUS_BAD_PARENT[] = "2002";
constexpr char STATUS_BAD_DOCUMENT[] = "2003";
constexpr char STATUS_INTERNAL_FAILURE[] = "3001";

// What is wrong with a text as a product name or address of a document; empty when nothing is.
std::string NameProblem(const std::string& text);

// True for the x-status codes that accept a request.
bool IsAccepting(const std::string& status);

// A few words for an x-status code or a StatusOut word; "unknown ..." for any other.
const char* StatusMeaning(const std::string& status);
const char* StatusOutMeaning(const std::string& word);

}  // namespace zvqrn::tools
