#include "pushscan/vocabulary.h"

#include "base/text.h"
#include "zvqrn/zvqrn.h"

namespace zvqrn {
namespace {

constexpr Word IMAGE_FORMAT_WORDS[] = {
    {"PDF", QRN_IMAGE_PDF}, {"TIFF", QRN_IMAGE_TIFF}, {"JPEG", QRN_IMAGE_JPEG}};

constexpr Word COLOR_TYPE_WORDS[] = {{"Color", QRN_COLOR_COLOR},
                                     {"Monochrome", QRN_COLOR_MONOCHROME}};

constexpr Word LOAD_PAPER_WORDS[] = {{"Auto", QRN_LOAD_AUTO},
                                     {"Flatbed", QRN_LOAD_FLATBED},
                                     {"Single", QRN_LOAD_SINGLE},
                                     {"Double", QRN_LOAD_DOUBLE}};

constexpr Word PAPER_TYPE_WORDS[] = {{"Auto", QRN_PAPER_AUTO},
                                     {"User", QRN_PAPER_USER},
                                     {"A3", QRN_PAPER_A3},
                                     {"A4", QRN_PAPER_A4},
                                     {"A4_Landscape", QRN_PAPER_A4_LANDSCAPE},
                                     {"B4", QRN_PAPER_B4},
                                     {"B5", QRN_PAPER_B5},
                                     {"B5_Landscape", QRN_PAPER_B5_LANDSCAPE},
                                     {"Letter", QRN_PAPER_LETTER},
                                     {"Letter_Landscape", QRN_PAPER_LETTER_LANDSCAPE},
                                     {"Legal", QRN_PAPER_LEGAL}};

constexpr Word RESPONSE_CODE_WORDS[] = {{"OK", QRN_RESPONSE_OK},
                                        {"PARAM_ERR", QRN_RESPONSE_PARAM_ERR},
                                        {"PARSE_ERR", QRN_RESPONSE_PARSE_ERR},
                                        {"PM_EXECUTE_ERR", QRN_RESPONSE_PM_EXECUTE_ERR},
                                        {"PM_NOT_INSTALL", QRN_RESPONSE_PM_NOT_INSTALL},
                                        {"TWAIN_NOT_INSTALL", QRN_RESPONSE_TWAIN_NOT_INSTALL},
                                        {"ERROR", QRN_RESPONSE_ERROR}};

template <std::size_t COUNT>
constexpr WordTable TableOf(const Word (&words)[COUNT]) {
  return WordTable{words, static_cast<std::int32_t>(COUNT)};
}

}  // namespace

constexpr WordTable IMAGE_FORMATS = TableOf(IMAGE_FORMAT_WORDS);
constexpr WordTable COLOR_TYPES = TableOf(COLOR_TYPE_WORDS);
constexpr WordTable LOAD_PAPERS = TableOf(LOAD_PAPER_WORDS);
constexpr WordTable PAPER_TYPES = TableOf(PAPER_TYPE_WORDS);
constexpr WordTable RESPONSE_CODES = TableOf(RESPONSE_CODE_WORDS);

const char* WordOf(const WordTable& table, std::int32_t value) {
  for (std::int32_t i = 0; i < table.count; i++) {
    if (table.words[i].value == value) {
      return table.words[i].text.data();
    }
  }
  return nullptr;
}

bool ValueOf(const WordTable& table, std::string_view text, std::int32_t* value) {
  for (std::int32_t i = 0; i < table.count; i++) {
    const Word& word = table.words[i];
    if (text.size() == word.text.size() && IsWord(text.data(), text.size(), word.text.data())) {
      *value = word.value;
      return true;
    }
  }
  return false;
}

}  // namespace zvqrn
