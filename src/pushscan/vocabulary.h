// The words of the push-scan documents: element names, namespaces, and the enumerations with the
// number of each word.  Used by the builder and the parser of documents.
#pragma once

#include <cstdint>
#include <string_view>

namespace zvqrn {

constexpr char ENVELOPE_PREFIX[] = "s";
constexpr char ENVELOPE_NAMESPACE[] = "http://www.w3.org/2003/05/soap-envelope";
constexpr char PUSHSCAN_PREFIX[] = "p";

// The host parts are settings of the build.  A is named in requests and in answers of version
// "1.00", B in answers of any other version.
constexpr char PUSHSCAN_NAMESPACE_A[] =
    "http://" ZVQRN_NAMESPACE_HOST_A "/Kolvari/Scan/2004/pushscan";
constexpr char PUSHSCAN_NAMESPACE_B[] =
    "http://" ZVQRN_NAMESPACE_HOST_B "/Kolvari/Scan/2004/pushscan";

constexpr char ELEMENT_ENVELOPE[] = "Envelope";
constexpr char ELEMENT_BODY[] = "Body";
constexpr char ELEMENT_REQUEST[] = "PushScan";
constexpr char ELEMENT_RESPONSE[] = "PushScanResponse";
constexpr char ELEMENT_PRODUCT_NAME[] = "ProductNameIn";
constexpr char ELEMENT_IP_ADDRESS[] = "IPAddressIn";
constexpr char ELEMENT_PUSHSCAN_ID[] = "PushScanIDIn";
constexpr char ELEMENT_STATUS[] = "StatusOut";

// One word of an enumeration and its number.
struct Word {
  std::string_view text;  // ends in a NUL
  std::int32_t value;
};

struct WordTable {
  const Word* words;
  std::int32_t count;
};

extern const WordTable IMAGE_FORMATS;
extern const WordTable COLOR_TYPES;
extern const WordTable LOAD_PAPERS;
extern const WordTable PAPER_TYPES;
extern const WordTable RESPONSE_CODES;

// The word of a number, or null.
const char* WordOf(const WordTable& table, std::int32_t value);

// The number of a word, compared without regard to case; false when the table
// does not have it.
bool ValueOf(const WordTable& table, std::string_view text, std::int32_t* value);

}  // namespace zvqrn
