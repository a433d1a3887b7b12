#include "scanner/wire/document.h"

#include "common/text.h"

namespace zvqrn::scanner {

namespace {

constexpr char ENVELOPE_NAMESPACE[] = "http://www.w3.org/2003/05/soap-envelope";
constexpr char SETTINGS_NAMESPACE[] =
    "http://" ZVQRN_NAMESPACE_HOST_A "/Kolvari/Scan/2004/pushscan";
constexpr char ID_NAMESPACE[] = "http://" ZVQRN_NAMESPACE_HOST_B "/Kolvari/Scan/2004/pushscan";

const std::vector<Element> SETTINGS_ELEMENTS = {
    {"ProductNameIn", &PushScanFields::productName, ELEMENT_TEXT, nullptr},
    {"IPAddressIn", &PushScanFields::ipAddress, ELEMENT_TEXT, nullptr},
    {"ImageFormatIn", &PushScanFields::imageFormat, ELEMENT_WORD, &tools::IMAGE_FORMATS},
    {"ColorTypeIn", &PushScanFields::colorType, ELEMENT_WORD, &tools::COLOR_TYPES},
    {"LoadPaperIn", &PushScanFields::loadPaper, ELEMENT_WORD, &tools::LOAD_PAPERS},
    {"PaperTypeIn", &PushScanFields::paperType, ELEMENT_WORD, &tools::PAPER_TYPES},
    {"PaperWidthIn", &PushScanFields::paperWidth, ELEMENT_MEASURE, nullptr},
    {"PaperHeightIn", &PushScanFields::paperHeight, ELEMENT_MEASURE, nullptr},
    {"ScanXIn", &PushScanFields::scanX, ELEMENT_MEASURE, nullptr},
    {"ScanYIn", &PushScanFields::scanY, ELEMENT_MEASURE, nullptr},
};

const std::vector<Element> ID_ELEMENTS = {
    {"ProductNameIn", &PushScanFields::productName, ELEMENT_TEXT, nullptr},
    {"IPAddressIn", &PushScanFields::ipAddress, ELEMENT_TEXT, nullptr},
    {"PushScanIDIn", &PushScanFields::pushScanId, ELEMENT_ID, nullptr},
};

std::string Elements(const std::vector<Element>& elements, const PushScanFields& fields) {
  std::string text;
  for (const Element& element : elements) {
    const std::string tag = element.name;
    text += "      <" + tag + ">";
    text += fields.*element.text + "</";
    text += tag + ">\r\n";
  }
  return text;
}

std::string Document(const std::string& pushScanNamespace, const std::string& elements) {
  return "<?xml version=\"1.0\" ?>\r\n"
         "<s:Envelope xmlns:s=\"" +
         std::string(ENVELOPE_NAMESPACE) +
         "\">\r\n"
         "  <s:Body>\r\n"
         "    <p:PushScan xmlns:p=\"" +
         pushScanNamespace + "\">\r\n" + elements +
         "    </p:PushScan>\r\n"
         "  </s:Body>\r\n"
         "</s:Envelope>\r\n";
}

}  // namespace

const std::vector<Element>& ElementsOf(bool isVersion2) {
  return isVersion2 ? ID_ELEMENTS : SETTINGS_ELEMENTS;
}

std::string ElementProblem(const Element& element, const std::string& text) {
  if (element.kind == ELEMENT_TEXT) {
    return tools::NameProblem(text);
  }
  if (element.kind == ELEMENT_WORD) {
    return tools::FindWord(*element.words, text) != nullptr
               ? ""
               : "'" + text + "' is none of " + tools::ListWords(*element.words, " ");
  }
  const bool isId = element.kind == ELEMENT_ID;
  const std::int32_t least = isId ? 1 : 0;
  const std::int32_t most = isId ? 3 : tools::MEASURE_LIMIT;
  std::int32_t number = 0;
  return tools::ParseNumber(text, &number) && number >= least && number <= most
             ? ""
             : "'" + text + "' is no number from " + std::to_string(least) + " to " +
                   std::to_string(most);
}

std::string SettingsDocument(const PushScanFields& fields) {
  return Document(SETTINGS_NAMESPACE, Elements(SETTINGS_ELEMENTS, fields));
}

std::string IdDocument(const PushScanFields& fields) {
  return Document(ID_NAMESPACE, Elements(ID_ELEMENTS, fields));
}

bool ReadStatusOut(const std::string& document, std::string* word) {
  constexpr char START_TAG[] = "<StatusOut>";
  constexpr char END_TAG[] = "</StatusOut>";
  const std::size_t response = document.find("<p:PushScanResponse ");
  const std::size_t tag = document.find(START_TAG, response);
  if (response == std::string::npos || tag == std::string::npos) {
    return false;
  }
  const std::size_t start = tag + sizeof START_TAG - 1;
  const std::size_t end = document.find(END_TAG, start);
  if (end == std::string::npos) {
    return false;
  }
  *word = document.substr(start, end - start);
  return true;
}

}  // namespace zvqrn::scanner
