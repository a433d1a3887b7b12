#include "scanner/explain/search_judge.h"

#include <algorithm>

#include "common/text.h"

namespace zvqrn::scanner {

namespace {

constexpr std::size_t DATAGRAM_LIMIT = 1400;
constexpr std::size_t SHORTEST_MESSAGE = 18;
constexpr std::size_t SHORTEST_BODY = 10;
constexpr std::size_t EXTENSION_ROOM = 7;
constexpr std::uint32_t LAST_FUNCTION = 11;
constexpr std::uint32_t FUNCTION_REQUEST = 6;
constexpr std::uint32_t FUNCTION_REPLY = 7;
constexpr char SERVICE_TYPE[] = "service:Quorin-agent";
constexpr char DEFAULT_SCOPE[] = "default";

// Takes one field after the other and notes it; false when the message ends inside one.
struct Reader {
  std::string_view bytes;
  std::vector<Field>* fields;
  std::size_t at = 0;

  bool Number(const char* name, std::size_t size, std::uint32_t* number) {
    if (bytes.size() - at < size) {
      return false;
    }
    *number = 0;
    for (const char byte : bytes.substr(at, size)) {
      *number = *number << 8U | static_cast<unsigned char>(byte);
    }
    fields->push_back({at, size, name, std::to_string(*number)});
    at += size;
    return true;
  }

  bool Text(const char* name, std::string* text) {
    std::uint32_t size = 0;
    if (!Number(name, 2, &size) || bytes.size() - at < size) {
      return false;
    }
    *text = std::string(bytes.substr(at, size));
    fields->back() = {at - 2, size + 2, name, *text};
    at += size;
    return true;
  }
};

// A text counts up to its first NUL.
std::string UpToNul(const std::string& text) {
  return text.substr(0, text.find('\0'));
}

// As the library counts: the right number of bytes behind each first one, and no more is asked.
bool CountsAsUtf8(const std::string& text) {
  std::size_t left = 0;
  for (const char letter : text) {
    const auto byte = static_cast<unsigned char>(letter);
    const bool continues = (byte & 0xC0U) == 0x80U;
    if (continues != (left > 0) || byte >= 0xF8U) {
      return false;
    }
    if (continues) {
      --left;
    } else if (byte >= 0xC0U) {
      left = byte >= 0xF0U ? 3 : byte >= 0xE0U ? 2 : 1;
    }
  }
  return left == 0;
}

// The one name of a scope list without its escapes; false when there is none, or are several.
bool ReadScopeName(const std::string& list, std::string* name) {
  name->clear();
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (list[i] == ',') {
      // A comma at the end opens no further element.
      if (i + 1 < list.size()) {
        return false;
      }
      break;
    }
    if (list[i] == '\\') {
      ++i;
      if (i == list.size() || static_cast<unsigned char>(list[i]) >= 0x80) {
        return false;
      }
    }
    name->push_back(list[i]);
  }
  return !name->empty() && CountsAsUtf8(list);
}

Judgement ReadHeader(Reader* reader, SlpDatagram* datagram, std::uint32_t* function,
                     std::string* language) {
  std::uint32_t version = 0;
  std::uint32_t length = 0;
  std::uint32_t flags = 0;
  std::uint32_t extension = 0;
  const std::size_t size = reader->bytes.size();
  if (size < SHORTEST_MESSAGE) {
    return {RULE_SLP_HEADER, std::to_string(size) + " bytes, fewer than 18"};
  }
  reader->Number("version", 1, &version);
  reader->Number("function", 1, function);
  reader->Number("length", 3, &length);
  reader->Number("flags", 2, &flags);
  reader->Number("next extension offset", 3, &extension);
  reader->Number("XID", 2, &datagram->xid);
  if (*function < 1 || *function > LAST_FUNCTION) {
    return {RULE_SLP_HEADER, "function " + std::to_string(*function) + " does not exist"};
  }
  if (length != size) {
    return {RULE_SLP_HEADER, "its length field says " + std::to_string(length) + ", it has " +
                                 std::to_string(size) + " bytes"};
  }
  if (!reader->Text("language tag", language)) {
    return {RULE_SLP_HEADER, "the language tag goes beyond the end"};
  }
  if (extension + EXTENSION_ROOM > length) {
    return {RULE_SLP_HEADER, "the next extension offset goes beyond the end"};
  }
  return {};
}

void ReadReplyBody(Reader* reader, SlpDatagram* datagram) {
  std::uint32_t number = 0;
  if (reader->Number("error code", 2, &number) && number == 0 &&
      reader->Text("attributes", &datagram->attributes)) {
    reader->Number("authentication blocks", 1, &number);
  }
}

Judgement JudgeRequestBody(Reader* reader, SlpDatagram* datagram, const std::string& language) {
  std::string url;
  std::string tags;
  if (reader->bytes.size() - reader->at < SHORTEST_BODY ||
      !reader->Text("previous responders", &datagram->previousResponders) ||
      !reader->Text("service type", &url) || !reader->Text("scopes", &datagram->scopes) ||
      !reader->Text("tags", &tags)) {
    return {RULE_SLP_BODY, {}};
  }
  if (!tools::EqualsIgnoringCase(UpToNul(url), SERVICE_TYPE)) {
    return {RULE_SERVICE_TYPE, url};
  }
  const std::string scopes = UpToNul(datagram->scopes);
  const bool isDefault = tools::EqualsIgnoringCase(scopes, DEFAULT_SCOPE);
  std::string name;
  if (!isDefault && !ReadScopeName(scopes, &name)) {
    return {RULE_SCOPE_LIST, datagram->scopes};
  }
  if (language.empty()) {
    return {RULE_LANGUAGE_TAG, {}};
  }
  return isDefault ? Judgement{RULE_ANSWERABLE, {}} : Judgement{RULE_SCOPE_ASKED, name};
}

}  // namespace

SlpDatagram ReadSlpDatagram(std::string_view bytes) {
  SlpDatagram datagram;
  Reader reader{bytes, &datagram.fields};
  if (bytes.size() > DATAGRAM_LIMIT && !(bytes.size() > 1 && bytes[1] == FUNCTION_REPLY)) {
    datagram.judgement = {RULE_DATAGRAM_SIZE, std::to_string(bytes.size()) + " bytes"};
    return datagram;
  }
  std::uint32_t function = 0;
  std::string language;
  datagram.judgement = ReadHeader(&reader, &datagram, &function, &language);
  if (datagram.judgement.rule != RULE_ACCEPTED) {
    return datagram;
  }
  if (function == FUNCTION_REPLY) {
    datagram.isReply = true;
    ReadReplyBody(&reader, &datagram);
  } else if (function != FUNCTION_REQUEST) {
    datagram.judgement = {RULE_SLP_FUNCTION, "function " + std::to_string(function)};
  } else {
    datagram.judgement = JudgeRequestBody(&reader, &datagram, language);
  }
  return datagram;
}

bool IsPreviousResponder(const std::string& list, const std::string& address) {
  const std::string whole = "," + UpToNul(list) + ",";
  return whole.find("," + address + ",") != std::string::npos;
}

}  // namespace zvqrn::scanner
