// Reading a version 1 request: the same ten fields out of the same bytes into the same record, by
// the library, by pugixml and by expat.
#include <benchmark/benchmark.h>
#include <expat.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <pugixml.hpp>
#include <string>

#include "common/messages.h"
#include "pushscan/documents.h"
#include "pushscan/request_fields.h"
#include "rooms/inputs.h"

namespace zvqrn::bench {
namespace {

void CopyField(char* field, std::size_t size, const char* text) {
  std::strncpy(field, text, size - 1);
}

// One element's text into the record; false when it is not one of the field's.
bool StoreField(const char* element, const char* text, PushScanRequestRecord* record) {
  if (std::strcmp(element, ELEMENT_PRODUCT_NAME) == 0) {
    CopyField(record->productName, sizeof record->productName, text);
    return true;
  }
  if (std::strcmp(element, ELEMENT_IP_ADDRESS) == 0) {
    CopyField(record->ipAddress, sizeof record->ipAddress, text);
    return true;
  }
  for (const RequestField& field : REQUEST_FIELDS) {
    if (element == field.element) {
      std::int32_t* value = &(record->*field.member);
      if (field.words != nullptr) {
        return ValueOf(*field.words, text, value);
      }
      *value = static_cast<std::int32_t>(std::strtol(text, nullptr, 10));
      return true;
    }
  }
  return false;
}

void RequireRecord(const PushScanRequestRecord& record) {
  Require(std::strcmp(record.ipAddress, "192.168.1.30") == 0 &&
          record.imageFormat == QRN_IMAGE_PDF && record.paperType == QRN_PAPER_A4 &&
          record.paperHeight == 1500);
}

void DocumentOurs(benchmark::State& state) {
  const std::string bytes = RequestDocument();
  while (state.KeepRunning()) {
    PushScanDocument* made = nullptr;
    Require(ParsePushScanDocument(bytes.data(), static_cast<std::int32_t>(bytes.size()), "1.00",
                                  &made) == DOC_OK);
    const OwnedParsedDocument document(made);
    RequireRecord(*static_cast<const PushScanRequestRecord*>(document->data));
  }
}
BENCHMARK(DocumentOurs)->Name("document.ours");

void DocumentPugixml(benchmark::State& state) {
  const std::string bytes = RequestDocument();
  while (state.KeepRunning()) {
    pugi::xml_document document;
    // The least that pugixml can be asked for; its defaults take longer.
    Require(document.load_buffer(bytes.data(), bytes.size(), pugi::parse_minimal));
    const auto record = std::make_unique<PushScanRequestRecord>();
    const pugi::xml_node request = document.child("s:Envelope").child("s:Body").child("p:PushScan");
    for (const pugi::xml_node& element : request.children()) {
      Require(StoreField(element.name(), element.child_value(), record.get()));
    }
    RequireRecord(*record);
  }
}
BENCHMARK(DocumentPugixml)->Name("document.pugixml");

struct ExpatReading {
  PushScanRequestRecord record{};
  std::string text;
  int depth = 0;
};

constexpr int FIELD_DEPTH = 4;

void OnBegin(void* reading, const char* /*element*/, const char** /*attributes*/) {
  auto* self = static_cast<ExpatReading*>(reading);
  self->depth++;
  self->text.clear();
}

void OnEnd(void* reading, const char* element) {
  auto* self = static_cast<ExpatReading*>(reading);
  if (self->depth == FIELD_DEPTH) {
    Require(StoreField(element, self->text.c_str(), &self->record));
  }
  self->depth--;
}

void OnText(void* reading, const char* text, int length) {
  static_cast<ExpatReading*>(reading)->text.append(text, static_cast<std::size_t>(length));
}

void DocumentExpat(benchmark::State& state) {
  const std::string bytes = RequestDocument();
  while (state.KeepRunning()) {
    const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(
        XML_ParserCreate(nullptr), XML_ParserFree);
    ExpatReading reading;
    XML_SetUserData(parser.get(), &reading);
    XML_SetElementHandler(parser.get(), OnBegin, OnEnd);
    XML_SetCharacterDataHandler(parser.get(), OnText);
    Require(XML_Parse(parser.get(), bytes.data(), static_cast<int>(bytes.size()), 1) ==
            XML_STATUS_OK);
    RequireRecord(reading.record);
  }
}
BENCHMARK(DocumentExpat)->Name("document.expat");

}  // namespace
}  // namespace zvqrn::bench
