#include "common/json_lines.h"

#include <nlohmann/json.hpp>

#include "common/output.h"

namespace zvqrn::tools {

namespace {

std::string Dump(const nlohmann::json& value) {
  constexpr bool ONLY_ASCII = true;
  return value.dump(-1, ' ', ONLY_ASCII, nlohmann::json::error_handler_t::replace);
}

}  // namespace

JsonValue::JsonValue(const std::string& value) : text(Dump(value)) {}

JsonValue::JsonValue(const char* value) : text(Dump(value)) {}

JsonValue::JsonValue(double value) : text(Dump(value)) {}

JsonValue::JsonValue(const std::vector<std::string>& values) : text(Dump(values)) {}

JsonValue::JsonValue(const JsonObject& value) : text(value.Text()) {}

JsonValue::JsonValue(const std::vector<JsonObject>& values) {
  text = "[";
  for (const JsonObject& value : values) {
    text += (text.size() > 1 ? "," : "") + value.Text();
  }
  text += "]";
}

JsonValue& JsonObject::operator[](const std::string& name) {
  for (auto& [known, value] : members_) {
    if (known == name) {
      return value;
    }
  }
  return members_.emplace_back(name, JsonValue()).second;
}

std::string JsonObject::Text() const {
  std::string text = "{";
  for (const auto& [name, value] : members_) {
    text += (text.size() > 1 ? "," : "") + Dump(name) + ":" + value.text;
  }
  return text + "}";
}

std::string JsonText(const std::string& bytes) {
  std::string text;
  for (const char letter : bytes) {
    const auto byte = static_cast<unsigned char>(letter);
    if (byte < 0x80) {
      text.push_back(letter);
    } else {
      text.push_back(static_cast<char>(0xC0U | (byte >> 6U)));
      text.push_back(static_cast<char>(0x80U | (byte & 0x3FU)));
    }
  }
  return text;
}

bool ReadJsonObject(const std::string& line, JsonMembers* members, std::string* why) {
  nlohmann::json object;
  try {
    object = nlohmann::json::parse(line);
  } catch (const nlohmann::json::parse_error& error) {
    *why = "no JSON, from byte " + std::to_string(error.byte) + " on";
    return false;
  } catch (const nlohmann::json::exception&) {
    *why = "a number of it is too large";
    return false;
  }
  if (!object.is_object()) {
    *why = "JSON, but no object";
    return false;
  }
  for (const auto& [name, value] : object.items()) {
    JsonMember& member = (*members)[name];
    if (value.is_string()) {
      member.kind = JSON_TEXT;
      member.text = value.get<std::string>();
    } else if (value.is_number_integer()) {
      member.kind = JSON_INTEGER;
      member.integer = value.get<std::int64_t>();
    } else if (value.is_boolean()) {
      member.kind = JSON_TRUTH;
      member.truth = value.get<bool>();
    }
  }
  return true;
}

bool BytesOfJsonText(const std::string& text, std::string* bytes) {
  bytes->clear();
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x80) {
      bytes->push_back(text[i]);
    } else if ((byte == 0xC2 || byte == 0xC3) && i + 1 < text.size()) {
      const auto low = static_cast<unsigned char>(text[++i]);
      bytes->push_back(static_cast<char>((byte & 0x03U) << 6U | (low & 0x3FU)));
    } else {
      return false;
    }
  }
  return true;
}

void PrintJsonLine(const JsonObject& object) {
  JsonObject line = object;
  line["at"] = TimeText();
  PrintBareLine(line.Text());
}

}  // namespace zvqrn::tools
