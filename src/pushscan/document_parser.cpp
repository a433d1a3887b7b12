// Reads received documents into their data records.

#include <cstddef>
#include <cstring>
#include <string_view>
#include <utility>

#include "base/text.h"
#include "eventproto/protocol.h"
#include "pushscan/documents.h"
#include "pushscan/request_fields.h"
#include "pushscan/vocabulary.h"
#include "pushscan/xml_reader.h"

namespace zvqrn {
namespace {

// Longest texts of a field: a word, and a number, which so always fits 32 bits.
constexpr std::int32_t WORD_LIMIT = 255;
constexpr std::int32_t NUMBER_LIMIT = 9;

constexpr std::int32_t LOWEST_PUSHSCAN_ID = 1;
constexpr std::int32_t HIGHEST_PUSHSCAN_ID = 3;

// 0 = no push-scan document.
std::int32_t DetectPushScanKind(const XmlContext* context, const char* protocolVersion) {
  const XmlResult request = FindPrefixedStartTag(context, PUSHSCAN_PREFIX, ELEMENT_REQUEST);
  if (request == XML_FOUND) {
    return SameMajorVersion(protocolVersion, VERSION_2) == 1 ? DOCUMENT_PUSHSCAN_V2
                                                             : DOCUMENT_PUSHSCAN_V1;
  }
  if (request == XML_NOT_FOUND &&
      FindPrefixedStartTag(context, PUSHSCAN_PREFIX, ELEMENT_RESPONSE) == XML_FOUND) {
    return DOCUMENT_PUSHSCAN_RESPONSE;
  }
  return 0;
}

std::int32_t DataSizeForKind(std::int32_t kind) {
  switch (kind) {
    case DOCUMENT_PUSHSCAN_V1:
      return DATA_SIZE_V1;
    case DOCUMENT_PUSHSCAN_RESPONSE:
      return DATA_SIZE_RESPONSE;
    default:
      return DATA_SIZE_V2;
  }
}

bool ReadNumber(const XmlContext* context, std::string_view element, std::int32_t* value) {
  XmlText found{};
  if (FindElementText(context, element, NUMBER_LIMIT, &found) != XML_FOUND) {
    return false;
  }
  char text[NUMBER_LIMIT + 1] = {};
  std::memcpy(text, found.begin, static_cast<std::size_t>(found.length));
  if (IsIntegerText(text) != 1) {
    return false;
  }
  *value = ParseIntegerText(text);
  return true;
}

bool ReadWord(const XmlContext* context, std::string_view element, const WordTable& words,
              std::int32_t* value) {
  XmlText text{};
  return FindElementText(context, element, WORD_LIMIT, &text) == XML_FOUND &&
         ValueOf(words, {text.begin, static_cast<std::size_t>(text.length)}, value);
}

// Both kinds of request begin with the scanner's product name and have its address at the same
// place.
template <typename Record>
bool ReadScanner(const XmlContext* context, Record* record) {
  constexpr auto LIMIT = static_cast<std::int32_t>(sizeof record->productName) - 1;
  return ReadElementText(context, ELEMENT_PRODUCT_NAME, LIMIT, record->productName) == XML_FOUND &&
         ReadElementText(context, ELEMENT_IP_ADDRESS, LIMIT, record->ipAddress) == XML_FOUND;
}

bool ReadRequest(const XmlContext* context, PushScanRequestRecord* record) {
  if (!ReadScanner(context, record)) {
    return false;
  }
  for (const RequestField& field : REQUEST_FIELDS) {
    std::int32_t* value = &(record->*field.member);
    const bool read = field.words != nullptr ? ReadWord(context, field.element, *field.words, value)
                                             : ReadNumber(context, field.element, value);
    if (!read) {
      return false;
    }
  }
  return true;
}

bool ReadPushScanFields(const XmlContext* context, const PushScanDocument& document) {
  switch (document.kind) {
    case DOCUMENT_PUSHSCAN_V1:
      return ReadRequest(context, static_cast<PushScanRequestRecord*>(document.data));
    case DOCUMENT_PUSHSCAN_V2: {
      auto* record = static_cast<PushScanIdRecord*>(document.data);
      return ReadScanner(context, record) &&
             ReadNumber(context, ELEMENT_PUSHSCAN_ID, &record->pushScanId);
    }
    default: {
      auto* record = static_cast<PushScanResponseRecord*>(document.data);
      return ReadWord(context, ELEMENT_STATUS, RESPONSE_CODES, &record->responseCode);
    }
  }
}

bool IsValidRequest(const PushScanRequestRecord& record) {
  if (record.productName[0] == '\0' || record.ipAddress[0] == '\0') {
    return false;
  }
  for (const RequestField& field : REQUEST_FIELDS) {
    if (!IsValidField(field, record)) {
      return false;
    }
  }
  return true;
}

bool ValidatePushScanData(const PushScanDocument& document) {
  switch (document.kind) {
    case DOCUMENT_PUSHSCAN_V1:
      return IsValidRequest(*static_cast<const PushScanRequestRecord*>(document.data));
    case DOCUMENT_PUSHSCAN_V2: {
      const std::int32_t id = static_cast<const PushScanIdRecord*>(document.data)->pushScanId;
      return id >= LOWEST_PUSHSCAN_ID && id <= HIGHEST_PUSHSCAN_ID;
    }
    default:
      // A word of the table was read, so the code is one of its numbers.
      return true;
  }
}

}  // namespace

DocumentResult ParsePushScanDocument(const char* input, std::int32_t inputLength,
                                     const char* protocolVersion, PushScanDocument** document) {
  if (document != nullptr) {
    *document = nullptr;
  }
  if (input == nullptr || inputLength < 0 || protocolVersion == nullptr || document == nullptr) {
    return DOC_FAILED;
  }
  XmlContext context;
  SetXmlInput(&context, input, inputLength);
  const std::int32_t kind = DetectPushScanKind(&context, protocolVersion);
  if (kind == 0) {
    return DOC_UNREADABLE;
  }
  OwnedParsedDocument made(NewRecord<PushScanDocument>());
  if (!made) {
    return DOC_FAILED;
  }
  made->kind = kind;
  made->dataSize = DataSizeForKind(kind);
  made->data = NewBytes(made->dataSize);
  if (made->data == nullptr) {
    return DOC_FAILED;
  }
  made->text = const_cast<char*>(input);
  made->textLength = inputLength;
  if (!ReadPushScanFields(&context, *made)) {
    return DOC_UNREADABLE;
  }
  if (!ValidatePushScanData(*made)) {
    return DOC_BAD_VALUE;
  }
  *document = made.release();
  return DOC_OK;
}

DocumentResult GetPushScanData(const PushScanDocument* document, PushScanDataView* view) {
  if (document == nullptr || view == nullptr || document->kind < 0 || document->dataSize < 0 ||
      document->data == nullptr) {
    return DOC_FAILED;
  }
  *view = PushScanDataView{document->kind, document->dataSize, document->data};
  return DOC_OK;
}

void* TakePushScanData(PushScanDocument* document) {
  return std::exchange(document->data, nullptr);
}

void ReleaseParsedPushScan(PushScanDocument* document) {
  if (document != nullptr) {
    std::free(document->data);
    std::free(document);
  }
}

}  // namespace zvqrn
