#include "host/request_text.h"

#include <cstring>

#include "common/text.h"
#include "common/vocabulary.h"

namespace zvqrn::host {

namespace {

constexpr std::size_t DRIVER_NAME_SIZE = 34;
constexpr std::int32_t V1_SIZE = 136;
constexpr std::int32_t V2_SIZE = 104;

// A value without a word shows as its number: the host prints what it was given.
std::string WordOf(const tools::Words& words, std::int32_t value) {
  const tools::Word* word = tools::FindWord(words, value);
  return word == nullptr ? std::to_string(value) : word->text;
}

bool ReadV1(std::int32_t kind, const void* data, std::int32_t size, PushScanRequestRecord* record) {
  if (kind != DOCUMENT_PUSHSCAN_V1 || data == nullptr || size != V1_SIZE) {
    return false;
  }
  std::memcpy(record, data, sizeof *record);
  return true;
}

bool ReadV2(std::int32_t kind, const void* data, std::int32_t size, PushScanIdRecord* record) {
  if (kind != DOCUMENT_PUSHSCAN_V2 || data == nullptr || size != V2_SIZE) {
    return false;
  }
  std::memcpy(record, data, sizeof *record);
  return true;
}

// The driver's name of a version 1 record runs on into the field behind productName.
std::string DriverOfV1(const PushScanRequestRecord& record) {
  char name[DRIVER_NAME_SIZE] = {};
  std::memcpy(name, record.productName, sizeof record.productName);
  std::memcpy(name + sizeof record.productName, record.reserved1,
              DRIVER_NAME_SIZE - sizeof record.productName);
  return tools::FieldText(name, sizeof name);
}

}  // namespace

std::string DriverName(std::int32_t documentKind, const void* requestData, std::int32_t size) {
  PushScanRequestRecord v1 = {};
  PushScanIdRecord v2 = {};
  if (ReadV1(documentKind, requestData, size, &v1)) {
    return DriverOfV1(v1);
  }
  if (ReadV2(documentKind, requestData, size, &v2)) {
    return tools::FieldText(v2.driverName, sizeof v2.driverName);
  }
  return {};
}

std::string ExchangeWord(const EventHeader& header) {
  if (header.exchangeType == EXCHANGE_SINGLE) {
    return "single";
  }
  return header.subevent == SUBEVENT_START ? "start" : "end";
}

void AddRequestFields(const EventHeader& header, std::int32_t documentKind, const void* requestData,
                      std::int32_t size, tools::JsonObject* object) {
  tools::JsonObject& json = *object;
  json["exchange"] = ExchangeWord(header);
  json["uid"] = tools::JsonText(tools::FieldText(header.uid, sizeof header.uid));
  json["protocolVersion"] =
      tools::JsonText(tools::FieldText(header.protocolVersion, sizeof header.protocolVersion));
  json["kind"] = documentKind;
  json["size"] = size;
  PushScanRequestRecord v1 = {};
  PushScanIdRecord v2 = {};
  if (ReadV1(documentKind, requestData, size, &v1)) {
    json["driverName"] = tools::JsonText(DriverOfV1(v1));
    json["ipAddress"] = tools::JsonText(tools::FieldText(v1.ipAddress, sizeof v1.ipAddress));
    json["imageFormat"] = WordOf(tools::IMAGE_FORMATS, v1.imageFormat);
    json["colorType"] = WordOf(tools::COLOR_TYPES, v1.colorType);
    json["loadPaper"] = WordOf(tools::LOAD_PAPERS, v1.loadPaper);
    json["paperType"] = WordOf(tools::PAPER_TYPES, v1.paperType);
    json["paperWidth"] = v1.paperWidth;
    json["paperHeight"] = v1.paperHeight;
    json["scanX"] = v1.scanX;
    json["scanY"] = v1.scanY;
  } else if (ReadV2(documentKind, requestData, size, &v2)) {
    json["productName"] = tools::JsonText(tools::FieldText(v2.productName, sizeof v2.productName));
    json["driverName"] = tools::JsonText(tools::FieldText(v2.driverName, sizeof v2.driverName));
    json["ipAddress"] = tools::JsonText(tools::FieldText(v2.ipAddress, sizeof v2.ipAddress));
    json["pushScanId"] = v2.pushScanId;
  }
}

std::string DescribeRequest(const EventHeader& header, std::int32_t documentKind,
                            const void* requestData, std::int32_t size) {
  const std::string uid = tools::FieldText(header.uid, sizeof header.uid);
  const std::string version =
      tools::FieldText(header.protocolVersion, sizeof header.protocolVersion);
  std::string text = ExchangeWord(header) + ", protocol version " + tools::EscapeBytes(version) +
                     ", uid " + tools::QuoteBytes(uid);
  PushScanRequestRecord v1 = {};
  PushScanIdRecord v2 = {};
  if (ReadV1(documentKind, requestData, size, &v1)) {
    text += "\n    driver " + tools::QuoteBytes(DriverOfV1(v1)) + ", scanner at " +
            tools::QuoteBytes(tools::FieldText(v1.ipAddress, sizeof v1.ipAddress)) + "\n    " +
            WordOf(tools::IMAGE_FORMATS, v1.imageFormat) + ", " +
            WordOf(tools::COLOR_TYPES, v1.colorType) + ", paper from " +
            WordOf(tools::LOAD_PAPERS, v1.loadPaper) + ", size " +
            WordOf(tools::PAPER_TYPES, v1.paperType) + " (" + std::to_string(v1.paperWidth) +
            " x " + std::to_string(v1.paperHeight) + "), from " + std::to_string(v1.scanX) + ", " +
            std::to_string(v1.scanY);
  } else if (ReadV2(documentKind, requestData, size, &v2)) {
    text += "\n    product " +
            tools::QuoteBytes(tools::FieldText(v2.productName, sizeof v2.productName)) +
            ", driver " + tools::QuoteBytes(tools::FieldText(v2.driverName, sizeof v2.driverName)) +
            ", scanner at " +
            tools::QuoteBytes(tools::FieldText(v2.ipAddress, sizeof v2.ipAddress)) +
            "\n    push-scan ID " + std::to_string(v2.pushScanId);
  } else {
    text += "\n    a document of kind " + std::to_string(documentKind) + " with " +
            std::to_string(size) + " bytes, which this host does not know";
  }
  return text;
}

}  // namespace zvqrn::host
