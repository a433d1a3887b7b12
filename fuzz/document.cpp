// Push-scan documents: what is parsed is of the kind that the version asks for, and a document that
// is built from it parses to the same record.

#include "pushscan/documents.h"
#include "support/fuzz_target.h"

namespace zvqrn::fuzz {

static OwnedParsedDocument Parse(const SuspiciousBlock& text, const char* version) {
  PushScanDocument* made = nullptr;
  const DocumentResult result = ParsePushScanDocument(text.Data(), text.length, version, &made);
  REQUIRE((result == DOC_OK) == (made != nullptr) && result != DOC_FAILED);
  return OwnedParsedDocument(made);
}

void FuzzOne(FuzzedDataProvider* data) {
  const char* version = data->PickValueInArray({"1.00", "2.00", "1.", "2.9", "3.00", "2", ""});
  const SuspiciousBlock text = BlockOf(data->ConsumeRemainingBytesAsString());
  const OwnedParsedDocument parsed = Parse(text, version);
  PushScanDataView view{};
  REQUIRE(GetPushScanData(parsed.get(), &view) == (parsed ? DOC_OK : DOC_FAILED));
  const SuspiciousBlock record = BlockOf(Bytes(view.data, view.dataSize));
  PushScanDocument* made = nullptr;
  const DocumentResult result =
      CreatePushScanDocument(view.kind, record.Data(), record.length, &made);
  const OwnedBuiltDocument built(made);
  if (view.kind == DOCUMENT_PUSHSCAN_V2) {
    const std::int32_t id = static_cast<const PushScanIdRecord*>(view.data)->pushScanId;
    REQUIRE(version[0] == '2' && view.dataSize == DATA_SIZE_V2 && id >= 1 && id <= 3);
  } else if (parsed) {
    REQUIRE(result == DOC_OK && (view.kind == DOCUMENT_PUSHSCAN_RESPONSE || version[0] != '2'));
    const auto again = Parse(BlockOf(Bytes(made->text, made->textLength)), "1.00");
    // A tag inside a text is not escaped, and may be read as one.
    REQUIRE(std::memchr(view.data, '<', static_cast<std::size_t>(view.dataSize)) != nullptr ||
            (again && Bytes(again->data, again->dataSize) == Bytes(view.data, view.dataSize)));
  }
}

}  // namespace zvqrn::fuzz
