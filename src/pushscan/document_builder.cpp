// Builds the text of documents.

#include <cstring>

#include "base/text.h"
#include "pushscan/documents.h"
#include "pushscan/request_fields.h"
#include "pushscan/vocabulary.h"
#include "pushscan/xml_writer.h"

namespace zvqrn {
namespace {

static_assert(sizeof(PushScanResponseRecord) == 36, "responseCode and 32 bytes of version");

// Frees the text of a document that is abandoned, and its context.
void AbandonDocument(XmlContext* context) {
  if (context != nullptr) {
    std::free(context->text);
    ReleaseXmlContext(context);
  }
}
using OwnedDraft = Owned<XmlContext, AbandonDocument>;

std::int32_t WriteField(XmlContext* context, const char* name, const char* text) {
  return WriteElement(context, nullptr, name, nullptr, nullptr, text);
}

std::int32_t OpenWithNamespace(XmlContext* context, const char* prefix, const char* name,
                               const char* uri) {
  return WriteElement(context, prefix, name, "xmlns", uri, nullptr);
}

std::int32_t WriteSoapPrologue(XmlContext* context) {
  return WriteXmlDeclaration(context, "1.0", nullptr) == 1 &&
                 OpenWithNamespace(context, ENVELOPE_PREFIX, ELEMENT_ENVELOPE,
                                   ENVELOPE_NAMESPACE) == 1 &&
                 OpenElement(context, ENVELOPE_PREFIX, ELEMENT_BODY) == 1
             ? 1
             : 0;
}

DocumentResult WriteTextField(XmlContext* context, const char* name, const char* text) {
  if (*text == '\0') {
    return DOC_BAD_VALUE;
  }
  return WriteField(context, name, text) == 1 ? DOC_OK : DOC_FAILED;
}

DocumentResult WriteRequestField(XmlContext* context, const RequestField& field,
                                 const PushScanRequestRecord& record) {
  if (!IsValidField(field, record)) {
    return DOC_BAD_VALUE;
  }
  const std::int32_t value = record.*field.member;
  if (field.words != nullptr) {
    return WriteField(context, field.element.data(), WordOf(*field.words, value)) == 1 ? DOC_OK
                                                                                       : DOC_FAILED;
  }
  char number[DECIMAL_TEXT_SIZE];
  FormatDecimal(static_cast<std::uint32_t>(value), number);
  return WriteField(context, field.element.data(), number) == 1 ? DOC_OK : DOC_FAILED;
}

DocumentResult WritePushScanRequest(XmlContext* context, const PushScanRequestRecord& record) {
  if (OpenWithNamespace(context, PUSHSCAN_PREFIX, ELEMENT_REQUEST, PUSHSCAN_NAMESPACE_A) != 1) {
    return DOC_FAILED;
  }
  DocumentResult result = WriteTextField(context, ELEMENT_PRODUCT_NAME, record.productName);
  if (result == DOC_OK) {
    result = WriteTextField(context, ELEMENT_IP_ADDRESS, record.ipAddress);
  }
  for (const RequestField& field : REQUEST_FIELDS) {
    if (result == DOC_OK) {
      result = WriteRequestField(context, field, record);
    }
  }
  if (result != DOC_OK) {
    return result;
  }
  return CloseElement(context, PUSHSCAN_PREFIX, ELEMENT_REQUEST) == 1 ? DOC_OK : DOC_FAILED;
}

DocumentResult WritePushScanResponse(XmlContext* context, const PushScanResponseRecord& record) {
  const bool isVersion1 = std::strcmp(record.protocolVersion, "1.00") == 0;
  const char* uri = isVersion1 ? PUSHSCAN_NAMESPACE_A : PUSHSCAN_NAMESPACE_B;
  const char* word = WordOf(RESPONSE_CODES, record.responseCode);
  if (word == nullptr) {
    word = WordOf(RESPONSE_CODES, QRN_RESPONSE_ERROR);
  }
  return OpenWithNamespace(context, PUSHSCAN_PREFIX, ELEMENT_RESPONSE, uri) == 1 &&
                 WriteField(context, ELEMENT_STATUS, word) == 1 &&
                 CloseElement(context, PUSHSCAN_PREFIX, ELEMENT_RESPONSE) == 1
             ? DOC_OK
             : DOC_FAILED;
}

// Copies the caller's record: a text that fills its field to the last byte must not be read on.
template <typename Record>
Record ReadRecord(const void* data, std::int32_t dataSize) {
  Record record{};
  const auto size = static_cast<std::size_t>(dataSize);
  std::memcpy(&record, data, size < sizeof record ? size : sizeof record);
  return record;
}

DocumentResult WriteContent(XmlContext* context, std::int32_t kind, const void* data,
                            std::int32_t dataSize) {
  if (kind == DOCUMENT_PUSHSCAN_V1) {
    auto record = ReadRecord<PushScanRequestRecord>(data, dataSize);
    record.productName[sizeof record.productName - 1] = '\0';
    record.ipAddress[sizeof record.ipAddress - 1] = '\0';
    return WritePushScanRequest(context, record);
  }
  if (kind == DOCUMENT_PUSHSCAN_RESPONSE) {
    auto record = ReadRecord<PushScanResponseRecord>(data, dataSize);
    record.protocolVersion[sizeof record.protocolVersion - 1] = '\0';
    return WritePushScanResponse(context, record);
  }
  return DOC_FAILED;
}

DocumentResult BuildText(PushScanDocument* document) {
  const OwnedDraft draft(CreateXmlContext());
  if (!draft || WriteSoapPrologue(draft.get()) != 1) {
    return DOC_FAILED;
  }
  const DocumentResult result =
      WriteContent(draft.get(), document->kind, document->data, document->dataSize);
  if (result != DOC_OK) {
    return result;
  }
  if (CloseElement(draft.get(), ENVELOPE_PREFIX, ELEMENT_BODY) != 1 ||
      CloseElement(draft.get(), ENVELOPE_PREFIX, ELEMENT_ENVELOPE) != 1) {
    return DOC_FAILED;
  }
  document->text = draft->text;
  document->textLength = draft->textLength;
  draft->text = nullptr;
  return DOC_OK;
}

}  // namespace

DocumentResult CreatePushScanDocument(std::int32_t kind, const void* data, std::int32_t dataSize,
                                      PushScanDocument** document) {
  if (document != nullptr) {
    *document = nullptr;
  }
  if (kind < 0 || data == nullptr || dataSize < 0 || document == nullptr) {
    return DOC_FAILED;
  }
  OwnedBuiltDocument made(NewRecord<PushScanDocument>());
  if (!made) {
    return DOC_FAILED;
  }
  made->kind = kind;
  made->dataSize = dataSize;
  made->data = const_cast<void*>(data);
  const DocumentResult result = BuildText(made.get());
  if (result == DOC_OK) {
    *document = made.release();
  }
  return result;
}

DocumentResult GetPushScanText(const PushScanDocument* document, const char** text,
                               std::int32_t* textLength) {
  if (document == nullptr || text == nullptr || textLength == nullptr ||
      document->text == nullptr || document->textLength < 0) {
    return DOC_FAILED;
  }
  *text = document->text;
  *textLength = document->textLength;
  return DOC_OK;
}

DocumentResult TakePushScanText(PushScanDocument* document, char** text, std::int32_t* textLength) {
  const char* own = nullptr;
  if (text == nullptr || GetPushScanText(document, &own, textLength) != DOC_OK) {
    return DOC_FAILED;
  }
  *text = document->text;
  document->text = nullptr;
  return DOC_OK;
}

void ReleasePushScanDocument(PushScanDocument* document) {
  if (document != nullptr) {
    std::free(document->text);
    std::free(document);
  }
}

}  // namespace zvqrn
