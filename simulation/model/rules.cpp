#include "model/rules.h"

#include <cstring>

namespace zvqrn::simulation {

Utility utility = UTILITY_KNOWS;

namespace {

constexpr char PROTOCOL[] = "Zorva Network Service Protocol";

std::string Capitals(std::string text) {
  for (char& letter : text) {
    letter = letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 32) : letter;
  }
  return text;
}

std::string Envelope(const std::string& element, const std::string& host, const std::string& rest) {
  return "<?xml version=\"1.0\" ?>\r\n"
         "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\">\r\n  <s:Body>\r\n"
         "    <p:" +
         element + " xmlns:p=\"http://" + host + "/Kolvari/Scan/2004/pushscan\">\r\n" + rest +
         "    </p:" + element + ">\r\n  </s:Body>\r\n</s:Envelope>\r\n";
}

std::string Field(const std::string& name, const std::string& value) {
  return "      <" + name + ">" + value + "</" + name + ">\r\n";
}

std::string ResponseDocument(const std::string& version, std::int32_t response) {
  static const char* const WORDS[] = {"ERROR",          "OK",
                                      "PARAM_ERR",      "PARSE_ERR",
                                      "ERROR",          "PM_EXECUTE_ERR",
                                      "PM_NOT_INSTALL", "TWAIN_NOT_INSTALL"};
  const char* word = response >= 0 && response < 8 ? WORDS[response] : "ERROR";
  return Envelope("PushScanResponse",
                  version == "1.00" ? "www.zorva.example" : "schemas.zorva.example",
                  Field("StatusOut", word));
}

std::string Document(const Request& request) {
  const std::string number = std::to_string(request.number);
  const std::string who =
      Field("ProductNameIn", request.product) + Field("IPAddressIn", "192.168.1.30");
  switch (request.body) {
    case Request::FOR_V1:
    case Request::BAD_VALUE:
      return Envelope("PushScan", "www.zorva.example",
                      who + Field("ImageFormatIn", "PDF") + Field("ColorTypeIn", "Color") +
                          Field("LoadPaperIn", "Flatbed") + Field("PaperTypeIn", "A4") +
                          Field("PaperWidthIn", request.body == Request::FOR_V1 ? number : "-1") +
                          Field("PaperHeightIn", "1500") + Field("ScanXIn", "0") +
                          Field("ScanYIn", "7"));
    case Request::FOR_V2:
      return Envelope("PushScan", "schemas.zorva.example", who + Field("PushScanIDIn", number));
    case Request::RESPONSE:
      return ResponseDocument("2.00", 1);
    case Request::RUBBISH:
      return "no document";
    default:
      return "";
  }
}

bool BeginsWith(const std::string& text, const std::string& begin) {
  return text.compare(0, begin.size(), begin) == 0;
}

std::string AnswerVersion(const std::string& version) {
  return BeginsWith(version, "2.") ? "2.00" : "1.00";
}

}  // namespace

void WriteRequest(Request* request, Dice* dice) {
  const std::string body = Document(*request);
  const char* const colon = dice->OneIn(2) ? " : " : dice->OneIn(2) ? ":" : "\t:  ";
  const bool capitals = dice->OneIn(4);
  std::string head = dice->OneIn(8) ? "X / HTTP/1.1\r\n" : "POST /PushScan HTTP/1.0\r\n";
  const auto add = [&](const std::string& name, const std::string& value) {
    if (!value.empty()) {
      head += (capitals ? Capitals(name) : name) + colon + value + "\r\n";
    }
  };
  add("x-protocol-name", request->protocol);
  add("x-protocol-version", request->version);
  add("x-uid", request->uid);
  add("x-subevent", request->subevent);
  add("x-parent-uid", request->parent);
  add("content-length", body.empty() && dice->OneIn(2) ? "" : std::to_string(body.size()));
  request->bytes = head + "\r\n" + body;
  request->currentUid = request->uid;
}

bool KnowsDriver(const std::string& product) {
  return BeginsWith(product, "XS");
}

std::string DriverOf(const std::string& product) {
  return "Driver of " + product;
}

Judgement Judge(const Request& request, bool openStart) {
  Judgement judgement{DROPPED, "", "1.00", SUBEVENT_NONE, "", 0, 0};
  const auto refuse = [&](const char* status) {
    judgement.fate = REFUSED;
    judgement.status = status;
    return judgement;
  };
  if (Capitals(request.protocol) != Capitals(PROTOCOL) || request.uid.empty() ||
      request.uid.size() > 19) {
    return judgement;
  }
  const std::string& version = request.version;
  if (version.empty()) {
    return refuse("1004");
  }
  if (version != "1.00" && version != "2.00" && !BeginsWith(version, "1.")) {
    return refuse("1001");
  }
  judgement.version = AnswerVersion(version);
  const std::string subevent = Capitals(request.subevent);
  if (subevent == "START") {
    judgement.subevent = SUBEVENT_START;
  } else if (subevent == "END") {
    judgement.subevent = SUBEVENT_END;
    if (request.parent.empty()) {
      return refuse("1004");
    }
    if (!openStart) {
      return refuse("2002");
    }
    judgement.parent = request.parent.substr(0, 19);
  } else if (!subevent.empty()) {
    return refuse("1004");
  }
  const bool isV2 = judgement.version == "2.00";
  if (request.body == Request::NOTHING) {
    return refuse("1003");
  }
  if (request.body != (isV2 ? Request::FOR_V2 : Request::FOR_V1)) {
    return refuse("2003");
  }
  judgement.status = version == judgement.version ? "0001" : "0002";
  judgement.documentKind = isV2 ? DOCUMENT_PUSHSCAN_V2 : DOCUMENT_PUSHSCAN_V1;
  if (utility == UTILITY_MISSING || !KnowsDriver(request.product)) {
    judgement.fate = ANSWERED_BY_LIBRARY;
    judgement.response =
        utility == UTILITY_MISSING ? QRN_RESPONSE_ERROR : QRN_RESPONSE_TWAIN_NOT_INSTALL;
    return judgement;
  }
  judgement.fate = FOR_HOST;
  return judgement;
}

std::string DataFor(const Request& request, const Judgement& judgement) {
  const std::string driver = DriverOf(request.product);
  if (judgement.documentKind == DOCUMENT_PUSHSCAN_V2) {
    PushScanIdRecord record{};
    request.product.copy(record.productName, sizeof record.productName - 1);
    driver.copy(record.driverName, sizeof record.driverName - 1);
    std::strcpy(record.ipAddress, "192.168.1.30");
    record.pushScanId = request.number;
    return {reinterpret_cast<const char*>(&record), sizeof record};
  }
  PushScanRequestRecord record{};
  // The driver's name takes the place of the product's, and may run on.
  driver.copy(reinterpret_cast<char*>(&record), 33);
  std::strcpy(record.ipAddress, "192.168.1.30");
  record.imageFormat = QRN_IMAGE_PDF;
  record.colorType = QRN_COLOR_COLOR;
  record.loadPaper = QRN_LOAD_FLATBED;
  record.paperType = QRN_PAPER_A4;
  record.paperWidth = request.number;
  record.paperHeight = 1500;
  record.scanY = 7;
  return std::string(reinterpret_cast<const char*>(&record), sizeof record) + std::string(4, '\0');
}

std::string Answer(const Judgement& judgement, const std::string& uid, const std::string& status,
                   std::int32_t response) {
  const std::string body = response == 0 ? "" : ResponseDocument(judgement.version, response);
  std::string text =
      "HTTP/1.0 200 OK\r\nServer : Zorva Quorin/2.0\r\n"
      "Content-Type : application/octet-stream\r\n";
  if (!body.empty()) {
    text += "Content-Length : " + std::to_string(body.size()) + "\r\n";
  }
  text += std::string("x-protocol-name : ") + PROTOCOL +
          "\r\nx-protocol-version : " + judgement.version + "\r\n";
  if (judgement.subevent != SUBEVENT_NONE) {
    text +=
        judgement.subevent == SUBEVENT_START ? "x-subevent : START\r\n" : "x-subevent : END\r\n";
  }
  text += "x-uid : " + uid + "\r\n";
  if (!judgement.parent.empty()) {
    text += "x-parent-uid : " + judgement.parent + "\r\n";
  }
  return text + "x-status : " + status + "\r\n\r\n" + body;
}

std::string AnswerOfVerdict(const Judgement& judgement, const std::string& uid,
                            std::int32_t verdict) {
  return verdict == QRN_RESPONSE_BUSY ? Answer(judgement, uid, "2001", 0)
                                      : Answer(judgement, uid, judgement.status,
                                               verdict == 0 ? QRN_RESPONSE_ERROR : verdict);
}

std::string BusyAnswerToExtra(const Request& request) {
  if (!BeginsWith(Capitals(request.protocol), Capitals(PROTOCOL)) || request.uid.empty() ||
      request.uid.size() > 19 || request.version.empty()) {
    return "";
  }
  const Judgement judgement{REFUSED, "", AnswerVersion(request.version), SUBEVENT_NONE, "", 0, 0};
  return Answer(judgement, request.uid, "2001", 0);
}

std::string HostMessage(const EventHeader& header, const std::string& parent,
                        const std::string& data) {
  return "POST /PushScan HTTP/1.0\r\nContent-Type : application/octet-stream\r\nContent-Length : " +
         std::to_string(data.size()) + "\r\nx-protocol-name : " + PROTOCOL +
         "\r\nx-protocol-version : " + header.protocolVersion + "\r\nx-uid : " + header.uid +
         "\r\nx-parent-uid : " + parent + "\r\n\r\n" + data;
}

// ---- Discovery
// -----------------------------------------------------------------------------------

namespace {

std::string Number(std::size_t value, int bytes) {
  std::string text;
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
    text += static_cast<char>(value >> static_cast<unsigned>(shift));
  }
  return text;
}

std::string Counted(const std::string& text) {
  return Number(text.size(), 2) + text;
}

std::string Header(int function, std::size_t length, std::int32_t xid,
                   const std::string& language) {
  return std::string("\x02") + static_cast<char>(function) + Number(length, 3) +
         (function == 6 ? std::string("\x20\x00", 2) : Number(length > 1400 ? 0x8000 : 0, 2)) +
         Number(0, 3) + Number(static_cast<std::size_t>(xid), 2) + Counted(language);
}

}  // namespace

void WriteSearch(Search* search) {
  const std::string body = Counted(search->responders) + Counted(search->url) +
                           Counted(search->scope) + Counted(search->tags) + Number(0, 2);
  search->bytes =
      Header(6, 14 + search->language.size() + body.size(), search->xid, search->language) + body;
}

bool DeservesReply(const Search& search, const std::string& address, bool* asksHost) {
  *asksHost = Capitals(search.scope) != "DEFAULT";
  const bool heardBefore =
      ("," + search.responders + ",").find("," + address + ",") != std::string::npos;
  const bool oneScope = search.scope.find(',') == std::string::npos && !search.scope.empty();
  return Capitals(search.url) == "SERVICE:QUORIN-AGENT" && !search.language.empty() &&
         !heardBefore && search.bytes.size() <= 1400 &&
         (!*asksHost || (oneScope && utility != UTILITY_MISSING && KnowsDriver(search.scope)));
}

std::string Reply(const Search& search, const std::string& name, const std::string& address) {
  std::string escaped;
  for (std::size_t i = 0; i < name.size() && name[i] != '\0'; i++) {
    const auto byte = static_cast<unsigned char>(name[i]);
    if (machine.temper.codePage == Temper::DOUBLE_BYTE && byte >= 0x81 && byte <= 0x9F) {
      if (i + 1 == name.size() || name[i + 1] == '\0') {
        break;  // half a character is left out
      }
      // A pair is one character, from U+4E00 on.
      const unsigned character =
          0x4E00U + (byte - 0x81U) * 256U + static_cast<unsigned char>(name[++i]);
      escaped += {static_cast<char>(0xE0U | character >> 12U),
                  static_cast<char>(0x80U | (character >> 6U & 0x3FU)),
                  static_cast<char>(0x80U | (character & 0x3FU))};
    } else if (byte >= 0x80 && machine.temper.codePage != Temper::UTF8) {
      escaped += {static_cast<char>(0xC0U | byte >> 6U), static_cast<char>(0x80U | (byte & 0x3FU))};
    } else {
      escaped += std::strchr("\\(),", name[i]) != nullptr ? "\\" : "";
      escaped += name[i];
    }
  }
  if (escaped.empty()) {
    return "";
  }
  const std::string list =
      "(ClientName=" + escaped + "),(IPAddress=" + address + "),(EventPort=2968)";
  return Header(7, 14 + search.language.size() + 5 + list.size(), search.xid, search.language) +
         Number(0, 2) + Counted(list) + '\0';
}

}  // namespace zvqrn::simulation
