// One JSON object a line, for scripts.  The JSON library is behind this file: it takes seconds to
// compile wherever it is included.  Used by quorin-host and quorin-scanner; any thread.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace zvqrn::tools {

class JsonObject;

// A value of an object, written out when it is made.  Bytes of a text that are not UTF-8 become
// U+FFFD; JsonText keeps them.
struct JsonValue {
  JsonValue() = default;  // null
  JsonValue(const std::string& value);
  JsonValue(const char* value);
  JsonValue(double value);
  JsonValue(const std::vector<std::string>& values);
  JsonValue(const JsonObject& value);
  JsonValue(const std::vector<JsonObject>& values);
  JsonValue(bool value) : text(value ? "true" : "false") {}
  template <typename Integer, std::enable_if_t<std::is_integral_v<Integer>, bool> = true>
  JsonValue(Integer value) : text(std::to_string(value)) {}

  std::string text = "null";
};

// An object whose members keep the order in which they were put in.
class JsonObject {
 public:
  JsonObject() = default;
  JsonObject(std::initializer_list<std::pair<std::string, JsonValue>> members)
      : members_(members) {}

  // The member of this name; a new one at the end when there is none.
  JsonValue& operator[](const std::string& name);

  // The object on one line, in ASCII.
  std::string Text() const;

 private:
  std::vector<std::pair<std::string, JsonValue>> members_;
};

// Gives `bytes` as text for a JSON string: each byte becomes the character of the same number, so
// nothing is lost whatever the code page (encode as Latin-1 to get the bytes back).
std::string JsonText(const std::string& bytes);

// Prints one object as one line to standard output and flushes it at once; its last member, "at",
// is the time in UTC.
void PrintJsonLine(const JsonObject& object);

// A member of an object that was read.
enum JsonKind { JSON_TEXT, JSON_INTEGER, JSON_TRUTH, JSON_OTHER };
struct JsonMember {
  JsonKind kind = JSON_OTHER;
  std::string text;
  std::int64_t integer = 0;
  bool truth = false;
};
using JsonMembers = std::map<std::string, JsonMember>;

// Reads a line that holds one object; false, and why, when it holds anything else.
bool ReadJsonObject(const std::string& line, JsonMembers* members, std::string* why);

// Gives the bytes of a text that has a character for each of them, as JsonText makes it; false when
// it has a character beyond U+00FF.
bool BytesOfJsonText(const std::string& text, std::string* bytes);

}  // namespace zvqrn::tools
