#include "common/vocabulary.h"

#include "common/text.h"
#include "zvqrn/zvqrn.h"

namespace zvqrn::tools {

namespace {

constexpr Word IMAGE_FORMAT_WORDS[] = {{"PDF", QRN_IMAGE_PDF, nullptr},
                                       {"TIFF", QRN_IMAGE_TIFF, nullptr},
                                       {"JPEG", QRN_IMAGE_JPEG, nullptr}};

constexpr Word COLOR_TYPE_WORDS[] = {{"Color", QRN_COLOR_COLOR, nullptr},
                                     {"Monochrome", QRN_COLOR_MONOCHROME, nullptr}};

constexpr Word LOAD_PAPER_WORDS[] = {{"Auto", QRN_LOAD_AUTO, nullptr},
                                     {"Flatbed", QRN_LOAD_FLATBED, nullptr},
                                     {"Single", QRN_LOAD_SINGLE, nullptr},
                                     {"Double", QRN_LOAD_DOUBLE, nullptr}};

constexpr Word PAPER_TYPE_WORDS[] = {{"Auto", QRN_PAPER_AUTO, nullptr},
                                     {"User", QRN_PAPER_USER, nullptr},
                                     {"A3", QRN_PAPER_A3, nullptr},
                                     {"A4", QRN_PAPER_A4, nullptr},
                                     {"A4_Landscape", QRN_PAPER_A4_LANDSCAPE, nullptr},
                                     {"B4", QRN_PAPER_B4, nullptr},
                                     {"B5", QRN_PAPER_B5, nullptr},
                                     {"B5_Landscape", QRN_PAPER_B5_LANDSCAPE, nullptr},
                                     {"Letter", QRN_PAPER_LETTER, nullptr},
                                     {"Letter_Landscape", QRN_PAPER_LETTER_LANDSCAPE, nullptr},
                                     {"Legal", QRN_PAPER_LEGAL, nullptr}};

constexpr Word ANSWER_WORDS[] = {
    {"OK", QRN_RESPONSE_OK, "the host accepted the request"},
    {"PARAM_ERR", QRN_RESPONSE_PARAM_ERR, "the host found a bad value"},
    {"PARSE_ERR", QRN_RESPONSE_PARSE_ERR, "the host could not read the request"},
    {"PM_EXECUTE_ERR", QRN_RESPONSE_PM_EXECUTE_ERR, "the host could not run its program"},
    {"PM_NOT_INSTALL", QRN_RESPONSE_PM_NOT_INSTALL, "the host's program is not installed"},
    {"TWAIN_NOT_INSTALL", QRN_RESPONSE_TWAIN_NOT_INSTALL,
     "the PC has no TWAIN driver for this scanner"},
    {"ERROR", QRN_RESPONSE_ERROR, "the PC has no utility library, or the host failed"},
};

struct StatusCode {
  const char* code;
  const char* meaning;
};

constexpr StatusCode STATUS_CODES[] = {
    {STATUS_ACCEPTED, "accepted"},
    {STATUS_ACCEPTED_MINOR, "accepted, though the PC knows this version 1 only as 1.00"},
    {STATUS_BAD_VERSION, "refused: protocol version not supported"},
    {STATUS_NO_BODY, "refused: no body, or no usable Content-Length"},
    {STATUS_BAD_HEADERS,
     "refused: x-protocol-version, x-subevent or x-parent-uid missing or wrong"},
    {STATUS_BUSY,
     "busy: the host declined, another scanner is connected, or the service is stopping"},
    {STATUS_BAD_PARENT, "refused: x-parent-uid names no open START of this connection"},
    {STATUS_BAD_DOCUMENT, "refused: the document cannot be read or holds a bad value"},
    {STATUS_INTERNAL_FAILURE, "internal failure on the PC"},
};

template <std::size_t COUNT>
constexpr Words TableOf(const Word (&words)[COUNT]) {
  return {words, COUNT};
}

}  // namespace

const Words IMAGE_FORMATS = TableOf(IMAGE_FORMAT_WORDS);
const Words COLOR_TYPES = TableOf(COLOR_TYPE_WORDS);
const Words LOAD_PAPERS = TableOf(LOAD_PAPER_WORDS);
const Words PAPER_TYPES = TableOf(PAPER_TYPE_WORDS);
const Words STATUS_OUT_WORDS = TableOf(ANSWER_WORDS);
const Word BUSY_ANSWER = {"BUSY", QRN_RESPONSE_BUSY, "the host declined"};

const Word* FindWord(const Words& words, const std::string& text) {
  for (const Word& word : words) {
    if (EqualsIgnoringCase(text, word.text)) {
      return &word;
    }
  }
  return nullptr;
}

const Word* FindWord(const Words& words, std::int32_t number) {
  for (const Word& word : words) {
    if (word.number == number) {
      return &word;
    }
  }
  return nullptr;
}

std::string ListWords(const Words& words, const std::string& separator) {
  std::string list;
  for (const Word& word : words) {
    list += (list.empty() ? "" : separator) + word.text;
  }
  return list;
}

std::string NameProblem(const std::string& text) {
  return text.empty() || text.size() > NAME_LIMIT ? "1 to 31 bytes" : "";
}

bool IsAccepting(const std::string& status) {
  return status == STATUS_ACCEPTED || status == STATUS_ACCEPTED_MINOR;
}

const char* StatusMeaning(const std::string& status) {
  for (const StatusCode& known : STATUS_CODES) {
    if (status == known.code) {
      return known.meaning;
    }
  }
  return "unknown code";
}

const char* StatusOutMeaning(const std::string& word) {
  const Word* known = FindWord(STATUS_OUT_WORDS, word);
  return known == nullptr ? "unknown word" : known->meaning;
}

}  // namespace zvqrn::tools
