#include "pushscan/documents.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "support/messages.h"
#include "support/suspicious_block.h"

namespace zvqrn {
namespace {

PushScanRequestRecord GoodRequest() {
  PushScanRequestRecord record{};
  std::strcpy(record.productName, "XS-200");
  std::strcpy(record.ipAddress, "192.168.1.30");
  record.imageFormat = QRN_IMAGE_PDF;
  record.colorType = QRN_COLOR_COLOR;
  record.loadPaper = QRN_LOAD_FLATBED;
  record.paperType = QRN_PAPER_A4;
  record.paperWidth = 1000;
  record.paperHeight = 1500;
  return record;
}

// The text of a built document, or the result in words.
std::string Built(std::int32_t kind, const void* data, std::int32_t size) {
  PushScanDocument* made = nullptr;
  const DocumentResult result = CreatePushScanDocument(kind, data, size, &made);
  const OwnedBuiltDocument document(made);
  if (result != DOC_OK) {
    EXPECT_EQ(made, nullptr);
    return "result " + std::to_string(result);
  }
  const char* text = nullptr;
  std::int32_t length = 0;
  EXPECT_EQ(GetPushScanText(made, &text, &length), DOC_OK);
  EXPECT_EQ(text[length], '\0');
  return {text, static_cast<std::size_t>(length)};
}

std::string BuiltResponse(std::int32_t code, const std::string& version) {
  PushScanResponseRecord record{};
  record.responseCode = code;
  version.copy(record.protocolVersion, sizeof record.protocolVersion);
  return Built(DOCUMENT_PUSHSCAN_RESPONSE, &record, sizeof record);
}

// Replaces the first `from` of a text.
std::string With(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return text.replace(at, from.size(), to);
}

struct Parsed {
  DocumentResult result;
  std::int32_t kind;
  std::string data;
};

Parsed Parse(const std::string& text, const char* version) {
  const test::SuspiciousBlock block = test::BlockOf(text);
  PushScanDocument* made = nullptr;
  Parsed parsed{ParsePushScanDocument(block.Data(), block.length, version, &made), 0, ""};
  const OwnedParsedDocument document(made);
  EXPECT_EQ(made != nullptr, parsed.result == DOC_OK);
  PushScanDataView view{};
  if (GetPushScanData(made, &view) == DOC_OK) {
    parsed.kind = view.kind;
    parsed.data.assign(static_cast<const char*>(view.data),
                       static_cast<std::size_t>(view.dataSize));
  }
  return parsed;
}

TEST(BuildDocument, WritesRequestsAndResponses) {
  const PushScanRequestRecord request = GoodRequest();
  EXPECT_EQ(Built(DOCUMENT_PUSHSCAN_V1, &request, sizeof request), test::DOCUMENT_V1);

  const struct {
    std::int32_t code;
    const char* word;
  } words[] = {{1, "OK"},
               {2, "PARAM_ERR"},
               {3, "PARSE_ERR"},
               {5, "PM_EXECUTE_ERR"},
               {6, "PM_NOT_INSTALL"},
               {7, "TWAIN_NOT_INSTALL"},
               {8, "ERROR"},
               {0, "ERROR"},
               {4, "ERROR"},
               {9, "ERROR"},
               {-1, "ERROR"}};
  for (const auto& w : words) {
    EXPECT_EQ(BuiltResponse(w.code, "1.00"), test::ResponseDocumentV1(w.word)) << w.code;
  }
  for (const char* version : {"2.00", "1.0", "1.00 ", ""}) {
    EXPECT_EQ(BuiltResponse(1, version), test::ResponseDocumentV2("OK")) << version;
  }
  EXPECT_EQ(BuiltResponse(1, std::string(32, '1')), test::ResponseDocumentV2("OK"))
      << "a version without end";
}

TEST(BuildDocument, RefusesBadValues) {
  using Change = std::function<void(PushScanRequestRecord*)>;
  const struct {
    const char* name;
    Change change;
    const char* result;
  } cases[] = {
      {"no name", [](auto* r) { r->productName[0] = '\0'; }, "result 3"},
      {"no address", [](auto* r) { r->ipAddress[0] = '\0'; }, "result 3"},
      {"format 0", [](auto* r) { r->imageFormat = 0; }, "result 3"},
      {"format 4", [](auto* r) { r->imageFormat = 4; }, "result 3"},
      {"color 0", [](auto* r) { r->colorType = 0; }, "result 3"},
      {"load 4", [](auto* r) { r->loadPaper = 4; }, "result 3"},
      {"load -1", [](auto* r) { r->loadPaper = -1; }, "result 3"},
      {"paper 11", [](auto* r) { r->paperType = 11; }, "result 3"},
      {"too wide", [](auto* r) { r->paperWidth = 1000000000; }, "result 3"},
      {"below 0", [](auto* r) { r->scanY = -1; }, "result 3"},
  };
  for (const auto& c : cases) {
    PushScanRequestRecord record = GoodRequest();
    c.change(&record);
    EXPECT_EQ(Built(DOCUMENT_PUSHSCAN_V1, &record, sizeof record), c.result) << c.name;
  }
  PushScanRequestRecord widest = GoodRequest();
  widest.paperWidth = 999999999;
  EXPECT_EQ(Built(DOCUMENT_PUSHSCAN_V1, &widest, sizeof widest),
            With(test::DOCUMENT_V1, "1000", "999999999"));
  for (const std::int32_t kind : {-1, 0, 3, 4}) {
    EXPECT_EQ(Built(kind, &widest, sizeof widest), "result 2") << kind;
  }
  const OwnedBlock<char> piece(NewBytes(4));
  EXPECT_EQ(Built(DOCUMENT_PUSHSCAN_V1, piece.get(), 4), "result 3");
  EXPECT_EQ(Built(DOCUMENT_PUSHSCAN_V1, nullptr, 0), "result 2");
  EXPECT_EQ(Built(DOCUMENT_PUSHSCAN_V1, &widest, -1), "result 2");
}

TEST(ParseDocument, FillsTheRecords) {
  const PushScanRequestRecord request = GoodRequest();
  std::string expected(reinterpret_cast<const char*>(&request), sizeof request);
  expected.resize(136, '\0');
  Parsed parsed = Parse(test::DOCUMENT_V1, "1.00");
  EXPECT_EQ(parsed.kind, DOCUMENT_PUSHSCAN_V1);
  EXPECT_EQ(parsed.data, expected);

  parsed = Parse(test::DOCUMENT_V2, "2.00");
  EXPECT_EQ(parsed.kind, DOCUMENT_PUSHSCAN_V2);
  expected.assign(104, '\0');
  expected.replace(0, 6, "XS-200").replace(66, 12, "192.168.1.30").replace(100, 1, 1, '\2');
  EXPECT_EQ(parsed.data, expected);

  parsed = Parse(With(test::ResponseDocumentV1("ok"), "<s:Body>", "<s:Body><!--<p:PushScan>-->"),
                 "1.00");
  EXPECT_EQ(parsed.kind, DOCUMENT_PUSHSCAN_RESPONSE);
  EXPECT_EQ(parsed.data, std::string("\1", 1) + std::string(39, '\0'));
}

TEST(ParseDocument, JudgesEachField) {
  const std::string v1 = test::DOCUMENT_V1;
  const std::string v2 = test::DOCUMENT_V2;
  const std::string name31(31, 'n');
  const struct {
    const char* name;
    std::string text;
    const char* version;
    DocumentResult result;
  } cases[] = {
      {"version 1 settings under version 2", v1, "2.00", DOC_UNREADABLE},
      {"version 2 as version 2.5", v2, "2.5", DOC_OK},
      {"version 2 under version 1", v2, "1.00", DOC_UNREADABLE},
      {"version 20 is not version 2", v1, "20.0", DOC_OK},
      {"no version", v1, nullptr, DOC_FAILED},
      {"no space behind the tag", With(v1, "<p:PushScan ", "<p:PushScan>"), "1.00", DOC_UNREADABLE},
      {"another prefix", With(v1, "<p:PushScan ", "<q:PushScan "), "1.00", DOC_UNREADABLE},
      {"no document", "hello", "1.00", DOC_UNREADABLE},
      {"empty", "", "1.00", DOC_UNREADABLE},
      {"words in another case", With(v1, "PDF", "tiff"), "1.00", DOC_OK},
      {"a space before a word", With(v1, "PDF", " TIFF"), "1.00", DOC_UNREADABLE},
      {"an unknown word", With(v1, "Flatbed", "Feeder"), "1.00", DOC_UNREADABLE},
      {"an empty word", With(v1, "Color", ""), "1.00", DOC_UNREADABLE},
      {"a word of 256 bytes", With(v1, "Color", std::string(256, 'c')), "1.00", DOC_UNREADABLE},
      {"a field missing", With(v1, "ScanYIn", "ScanZIn"), "1.00", DOC_UNREADABLE},
      {"a name of 31 bytes", With(v1, "XS-200", name31), "1.00", DOC_OK},
      {"a name of 32 bytes", With(v1, "XS-200", name31 + "n"), "1.00", DOC_UNREADABLE},
      {"an address of 31 bytes", With(v1, "192.168.1.30", name31), "1.00", DOC_OK},
      {"an address of 32 bytes", With(v1, "192.168.1.30", name31 + "n"), "1.00", DOC_UNREADABLE},
      {"an empty name", With(v1, "XS-200", ""), "1.00", DOC_BAD_VALUE},
      {"an empty address", With(v1, "192.168.1.30", ""), "1.00", DOC_BAD_VALUE},
      {"an empty name in version 2", With(v2, "XS-200", ""), "2.00", DOC_OK},
      {"ten digits", With(v1, "1000", "1234567890"), "1.00", DOC_UNREADABLE},
      {"nine digits", With(v1, "1000", "999999999"), "1.00", DOC_OK},
      {"a number below 0", With(v1, "1000", "-5"), "1.00", DOC_BAD_VALUE},
      {"an empty number", With(v1, "1000", ""), "1.00", DOC_OK},
      {"a number with a dot", With(v1, "1000", "1.5"), "1.00", DOC_UNREADABLE},
      {"ID 3", With(v2, ">2<", ">3<"), "2.00", DOC_OK},
      {"ID 4", With(v2, ">2<", ">4<"), "2.00", DOC_BAD_VALUE},
      {"ID 0", With(v2, ">2<", "><"), "2.00", DOC_BAD_VALUE},
      {"an unknown status", test::ResponseDocumentV1("FINE"), "1.00", DOC_UNREADABLE},
      {"both tags are a request", v1 + test::ResponseDocumentV1("OK"), "1.00", DOC_OK},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Parse(c.text, c.version).result, c.result) << c.name;
  }
  PushScanDocument* document = nullptr;
  EXPECT_EQ(ParsePushScanDocument(nullptr, 0, "1.00", &document), DOC_FAILED);
  EXPECT_EQ(ParsePushScanDocument("x", -1, "1.00", &document), DOC_FAILED);
  EXPECT_EQ(GetPushScanData(nullptr, nullptr), DOC_FAILED);
}

TEST(ParseDocument, KnowsEveryWord) {
  const struct {
    const char* from;
    std::size_t offset;
    const char* words[11];
    std::int32_t firstValue;
  } tables[] = {
      {"PDF", 100, {"PDF", "TIFF", "JPEG"}, 1},
      {"Color<", 104, {"Color<", "Monochrome<"}, 110},
      {"Flatbed", 108, {"Auto", "Flatbed", "Single", "Double"}, 0},
      {"A4",
       112,
       {"Auto", "User", "A3", "A4", "A4_Landscape", "B4", "B5", "B5_Landscape", "Letter",
        "Letter_Landscape", "Legal"},
       0},
  };
  for (const auto& table : tables) {
    std::int32_t expected = table.firstValue;
    for (const char* word : table.words) {
      if (word != nullptr) {
        const Parsed parsed = Parse(With(test::DOCUMENT_V1, table.from, word), "1.00");
        std::int32_t value = -1;
        ASSERT_EQ(parsed.result, DOC_OK) << word;
        std::memcpy(&value, parsed.data.data() + table.offset, sizeof value);
        EXPECT_EQ(value, expected++) << word;
      }
    }
  }
}

// Every document cut short and every byte of it changed is read or refused, never more.
TEST(ParseDocument, SurvivesDamage) {
  const struct {
    std::string text;
    const char* version;
  } cases[] = {{test::DOCUMENT_V1, "1.00"},
               {test::DOCUMENT_V2, "2.00"},
               {test::ResponseDocumentV1("OK"), "1.00"}};
  for (const auto& c : cases) {
    for (std::size_t at = 0; at < c.text.size(); at++) {
      Parse(c.text.substr(0, at), c.version);
      for (const char byte : {'\0', '<', '>', '/', '\xFF', '9'}) {
        std::string changed = c.text;
        changed[at] = byte;
        const Parsed parsed = Parse(changed, c.version);
        if (parsed.result == DOC_OK && parsed.kind == DOCUMENT_PUSHSCAN_V1) {
          EXPECT_EQ(parsed.data[31], '\0');
          EXPECT_EQ(parsed.data.substr(32, 34), std::string(34, '\0'));
        }
      }
    }
  }
}

}  // namespace
}  // namespace zvqrn
