#include "scanner/wire/attribute_list.h"

#include <cstdint>

#include "common/text.h"
#include "common/utf8.h"
#include "platform/socket.h"

namespace zvqrn::scanner {

namespace {

constexpr const char* TAGS[] = {"ClientName", "IPAddress", "EventPort"};
constexpr std::size_t TAG_COUNT = 3;
constexpr std::int32_t PORT_LIMIT = 65535;

std::string Quoted(const std::string& text) {
  return "'" + tools::EscapeUtf8(text) + "'";
}

// Takes `expected` from the list at `position`; false when something else stands there.
bool TakeText(const std::string& list, std::size_t* position, const std::string& expected) {
  if (list.compare(*position, expected.size(), expected) != 0) {
    return false;
  }
  *position += expected.size();
  return true;
}

// Takes a value up to the bracket that closes it, without its escapes; false when a reserved
// character stands in it unescaped or the list ends first.
bool TakeValue(const std::string& list, std::size_t* position, std::string* value) {
  value->clear();
  for (std::size_t i = *position; i < list.size(); ++i) {
    const char letter = list[i];
    if (letter == ')') {
      *position = i;
      return true;
    }
    if (letter == '(' || letter == ',') {
      return false;
    }
    if (letter == '\\') {
      ++i;
      if (i == list.size()) {
        return false;
      }
    }
    value->push_back(list[i]);
  }
  return false;
}

std::string CheckName(const std::string& name) {
  if (name.empty()) {
    return "ClientName is empty";
  }
  return tools::IsUtf8(name) ? std::string() : "ClientName " + Quoted(name) + " is not UTF-8";
}

// An address counts only in the one way in which it is written without leading zeros.
std::string CheckAddress(const std::string& text) {
  std::uint32_t address = 0;
  if (text.size() < platform::ADDRESS_TEXT_SIZE &&
      platform::TextToAddress(text.c_str(), &address)) {
    char canonical[platform::ADDRESS_TEXT_SIZE];
    platform::AddressToText(address, canonical);
    if (text == canonical && address != 0) {
      return {};
    }
  }
  return "IPAddress " + Quoted(text) + " is no address of a PC";
}

std::string CheckPort(const std::string& text, std::uint16_t* port) {
  std::int32_t number = 0;
  if (!tools::ParseNumber(text, &number) || number < 1 || number > PORT_LIMIT ||
      text != std::to_string(number)) {
    return "EventPort " + Quoted(text) + " is no port";
  }
  *port = static_cast<std::uint16_t>(number);
  return {};
}

}  // namespace

std::string ReadAttributes(const std::string& list, PcDescription* pc) {
  std::string values[TAG_COUNT];
  std::size_t position = 0;
  for (std::size_t i = 0; i < TAG_COUNT; ++i) {
    const std::string start = std::string(i == 0 ? "(" : ",(") + TAGS[i] + "=";
    if (!TakeText(list, &position, start) || !TakeValue(list, &position, &values[i]) ||
        !TakeText(list, &position, ")")) {
      return std::string("the attribute list has no well-formed ") + TAGS[i] +
             " in its place: " + Quoted(list);
    }
  }
  if (position != list.size()) {
    return "text follows the three attributes: " + Quoted(list.substr(position));
  }
  pc->name = values[0];
  pc->address = values[1];
  for (const std::string& problem :
       {CheckName(values[0]), CheckAddress(values[1]), CheckPort(values[2], &pc->eventPort)}) {
    if (!problem.empty()) {
      return problem;
    }
  }
  return {};
}

}  // namespace zvqrn::scanner
