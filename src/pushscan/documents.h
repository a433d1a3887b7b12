// The SOAP 1.2 documents of push scanning: the scanner's PushScan request in its two versions, and
// the PushScanResponse that answers it, between their text and the data records of
// include/zvqrn/zvqrn.h.  No state, no locks; a document is used by one thread at a time.
#pragma once

#include <cstdint>

#include "base/allocation.h"
#include "zvqrn/zvqrn.h"

namespace zvqrn {

enum DocumentResult : std::int32_t {
  DOC_OK = 1,
  DOC_FAILED = 2,     // a bad argument, a kind that cannot be handled, no memory, or a long line
  DOC_BAD_VALUE = 3,  // a field's value lies outside its range
  DOC_UNREADABLE = 4  // no such document, or a field is missing, too long or not one of its words
};

// Size of the data record of each kind as the host gets it: rounded up to a multiple of 8.
constexpr std::int32_t DATA_SIZE_V1 = 136;
constexpr std::int32_t DATA_SIZE_RESPONSE = 40;
constexpr std::int32_t DATA_SIZE_V2 = 104;

// Highest value of the four sizes and positions of a version 1 request.
constexpr std::int32_t MEASURE_LIMIT = 999999999;

struct PushScanResponseRecord {
  std::int32_t responseCode;  // QRN_RESPONSE_...
  char protocolVersion[32];   // chooses the namespace when building; left zero by parsing
};

// One built or parsed document.  A built one owns `text`, a parsed one owns `data`; each has its
// own release.
struct PushScanDocument {
  std::int32_t kind;      // DOCUMENT_PUSHSCAN_...
  std::int32_t dataSize;  // bytes of `data`
  void* data;
  std::int32_t textLength;  // without the NUL
  char* text;
};

struct PushScanDataView {
  std::int32_t kind;
  std::int32_t dataSize;
  void* data;  // still the document's
};

// Builds a request of version 1 or a response from its data record, which is read during the call
// only.  Release the document with ReleasePushScanDocument.
DocumentResult CreatePushScanDocument(std::int32_t kind, const void* data, std::int32_t dataSize,
                                      PushScanDocument** document);

// The text of a built document, still owned by it.
DocumentResult GetPushScanText(const PushScanDocument* document, const char** text,
                               std::int32_t* textLength);

// The same text, which is the caller's to free from now on; the document has none any more.
DocumentResult TakePushScanText(PushScanDocument* document, char** text, std::int32_t* textLength);

// Null does nothing.
void ReleasePushScanDocument(PushScanDocument* document);

// Reads a received text, which must stay valid as long as the document.  The protocol version
// decides whether a request is read as version 1 or 2.  Release the document with
// ReleaseParsedPushScan.
DocumentResult ParsePushScanDocument(const char* input, std::int32_t inputLength,
                                     const char* protocolVersion, PushScanDocument** document);

// What a parsed document holds.
DocumentResult GetPushScanData(const PushScanDocument* document, PushScanDataView* view);

// The data of a parsed document, which is the caller's to free from now on.
void* TakePushScanData(PushScanDocument* document);

// Null does nothing.
void ReleaseParsedPushScan(PushScanDocument* document);

using OwnedBuiltDocument = Owned<PushScanDocument, ReleasePushScanDocument>;
using OwnedParsedDocument = Owned<PushScanDocument, ReleaseParsedPushScan>;

}  // namespace zvqrn
