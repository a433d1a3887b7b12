#include "scanner/wire/document.h"

namespace zvqrn::scanner {

namespace {

constexpr char ENVELOPE_NAMESPACE[] = "http://www.w3.org/2003/05/soap-envelope";
constexpr char SETTINGS_NAMESPACE[] =
    "http://" ZVQRN_NAMESPACE_HOST_A "/Kolvari/Scan/2004/pushscan";
constexpr char ID_NAMESPACE[] = "http://" ZVQRN_NAMESPACE_HOST_B "/Kolvari/Scan/2004/pushscan";

std::string Element(const char* name, const std::string& text) {
  const std::string tag = name;
  return "      <" + tag + ">" + text + "</" + tag + ">\r\n";
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

std::string SettingsDocument(const PushScanFields& fields) {
  return Document(
      SETTINGS_NAMESPACE,
      Element("ProductNameIn", fields.productName) + Element("IPAddressIn", fields.ipAddress) +
          Element("ImageFormatIn", fields.imageFormat) + Element("ColorTypeIn", fields.colorType) +
          Element("LoadPaperIn", fields.loadPaper) + Element("PaperTypeIn", fields.paperType) +
          Element("PaperWidthIn", fields.paperWidth) +
          Element("PaperHeightIn", fields.paperHeight) + Element("ScanXIn", fields.scanX) +
          Element("ScanYIn", fields.scanY));
}

std::string IdDocument(const PushScanFields& fields) {
  return Document(ID_NAMESPACE, Element("ProductNameIn", fields.productName) +
                                    Element("IPAddressIn", fields.ipAddress) +
                                    Element("PushScanIDIn", fields.pushScanId));
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
