#include "support/messages.h"

namespace zvqrn::test {
namespace {

std::string ResponseDocument(const std::string& host, const std::string& word) {
  return "<?xml version=\"1.0\" ?>\r\n"
         "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\">\r\n"
         "  <s:Body>\r\n"
         "    <p:PushScanResponse xmlns:p=\"http://" +
         host + "/Kolvari/Scan/2004/pushscan\">\r\n      <StatusOut>" + word +
         "</StatusOut>\r\n"
         "    </p:PushScanResponse>\r\n"
         "  </s:Body>\r\n"
         "</s:Envelope>\r\n";
}

}  // namespace

const char* const DOCUMENT_V1 =
    "<?xml version=\"1.0\" ?>\r\n"
    "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\">\r\n"
    "  <s:Body>\r\n"
    "    <p:PushScan xmlns:p=\"http://www.zorva.example/Kolvari/Scan/2004/pushscan\">\r\n"
    "      <ProductNameIn>XS-200</ProductNameIn>\r\n"
    "      <IPAddressIn>192.168.1.30</IPAddressIn>\r\n"
    "      <ImageFormatIn>PDF</ImageFormatIn>\r\n"
    "      <ColorTypeIn>Color</ColorTypeIn>\r\n"
    "      <LoadPaperIn>Flatbed</LoadPaperIn>\r\n"
    "      <PaperTypeIn>A4</PaperTypeIn>\r\n"
    "      <PaperWidthIn>1000</PaperWidthIn>\r\n"
    "      <PaperHeightIn>1500</PaperHeightIn>\r\n"
    "      <ScanXIn>0</ScanXIn>\r\n"
    "      <ScanYIn>0</ScanYIn>\r\n"
    "    </p:PushScan>\r\n"
    "  </s:Body>\r\n"
    "</s:Envelope>\r\n";

const char* const DOCUMENT_V2 =
    "<?xml version=\"1.0\" ?>\r\n"
    "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\">\r\n"
    "  <s:Body>\r\n"
    "    <p:PushScan xmlns:p=\"http://schemas.zorva.example/Kolvari/Scan/2004/pushscan\">\r\n"
    "      <ProductNameIn>XS-200</ProductNameIn>\r\n"
    "      <IPAddressIn>192.168.1.30</IPAddressIn>\r\n"
    "      <PushScanIDIn>2</PushScanIDIn>\r\n"
    "    </p:PushScan>\r\n"
    "  </s:Body>\r\n"
    "</s:Envelope>\r\n";

std::string Request(const std::string& headers, const std::string& body) {
  return "POST /PushScan HTTP/1.0\r\n"
         "x-protocol-name : Zorva Network Service Protocol\r\n" +
         headers + "Content-Length : " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::string Identity(const std::string& version, const std::string& uid) {
  return "x-protocol-version : " + version + "\r\nx-uid : " + uid + "\r\n";
}

const char* const ANSWER_BEGIN =
    "HTTP/1.0 200 OK\r\n"
    "Server : Zorva Quorin/2.0\r\n"
    "Content-Type : application/octet-stream\r\n";

std::string ResponseDocumentV1(const std::string& word) {
  return ResponseDocument("www.zorva.example", word);
}

std::string ResponseDocumentV2(const std::string& word) {
  return ResponseDocument("schemas.zorva.example", word);
}

}  // namespace zvqrn::test
