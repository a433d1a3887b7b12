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

void PrintJsonLine(const JsonObject& object) {
  JsonObject line = object;
  line["at"] = TimeText();
  PrintBareLine(line.Text());
}

}  // namespace zvqrn::tools
