#include "scanner/explain/request_judge.h"

#include <algorithm>

#include "common/text.h"
#include "common/vocabulary.h"
#include "scanner/wire/document.h"

namespace zvqrn::scanner {

namespace {

constexpr char REQUEST_TAG[] = "<p:PushScan ";
constexpr std::size_t WORD_LIMIT = 255;
constexpr std::size_t NUMBER_LIMIT = 9;

bool BeginsWithOneAndDot(const std::string& version) {
  return version.rfind("1.", 0) == 0;
}

bool BeginsIgnoringCase(const std::string& text, const std::string& start) {
  return tools::EqualsIgnoringCase(text.substr(0, start.size()), start);
}

// A number's text is white space, a sign, digits, each of which may be missing.
bool IsNumberText(const std::string& text) {
  std::size_t at = 0;
  while (at < text.size() && (text[at] == ' ' || (text[at] >= '\t' && text[at] <= '\r'))) {
    ++at;
  }
  at += at < text.size() && (text[at] == '+' || text[at] == '-') ? std::size_t{1} : std::size_t{0};
  return text.find_first_not_of("0123456789", at) == std::string::npos;
}

// What is wrong with the value of an element; empty when nothing is.
std::string ValueProblem(const Element& element, const std::string& text, bool isVersion2) {
  if (element.kind == ELEMENT_TEXT) {
    if (text.size() > tools::NAME_LIMIT) {
      return "has " + std::to_string(text.size()) + " bytes, more than 31";
    }
    return text.empty() && !isVersion2 ? "is empty" : "";
  }
  if (element.kind == ELEMENT_WORD) {
    const bool known =
        text.size() <= WORD_LIMIT && tools::FindWord(*element.words, text) != nullptr;
    return known ? "" : "'" + text + "' is none of " + tools::ListWords(*element.words, " ");
  }
  const bool isId = element.kind == ELEMENT_ID;
  const std::int32_t least = isId ? 1 : 0;
  const std::int32_t most = isId ? 3 : tools::MEASURE_LIMIT;
  const std::int32_t number = LeadingNumber(text);
  if (text.size() > NUMBER_LIMIT || !IsNumberText(text) || number < least || number > most) {
    return "'" + text + "' is no number from " + std::to_string(least) + " to " +
           std::to_string(most);
  }
  return {};
}

std::string_view UpToNul(std::string_view body) {
  return body.substr(0, body.find('\0'));
}

Judgement JudgeDocument(std::string_view body, bool isVersion2) {
  if (UpToNul(body).find(REQUEST_TAG) == std::string_view::npos) {
    return {RULE_NO_DOCUMENT, {}};
  }
  // Every element is read before the ranges are looked at; the first fault in their order is named.
  for (const Element& element : ElementsOf(isVersion2)) {
    Field found;
    if (!FindElement(body, element.name, &found)) {
      return {RULE_FIELD, std::string(element.name) + " is missing, or has no end tag"};
    }
    const std::string problem = ValueProblem(element, found.value, isVersion2);
    if (!problem.empty()) {
      return {RULE_FIELD, std::string(element.name) + " " + problem};
    }
  }
  return {};
}

// The first receive of a connection that is not the main one is all that counts.
Judgement JudgeExtra(const Head& head) {
  if (!BeginsIgnoringCase(HeaderText(head, tools::HEADER_PROTOCOL_NAME), tools::PROTOCOL_NAME)) {
    return {RULE_PROTOCOL_NAME, HeaderText(head, tools::HEADER_PROTOCOL_NAME)};
  }
  const std::string* uid = HeaderOf(head, tools::HEADER_UID);
  if (uid == nullptr || uid->size() > tools::UID_LIMIT) {
    return {uid == nullptr ? RULE_UID_MISSING : RULE_UID_TOO_LONG, {}};
  }
  const bool hasVersion = HeaderOf(head, tools::HEADER_PROTOCOL_VERSION) != nullptr;
  return {hasVersion ? RULE_BUSY : RULE_EXTRA_VERSION, {}};
}

Judgement JudgeSubevent(const Head& head, const ConnectionView& view) {
  const std::string* word = HeaderOf(head, tools::HEADER_SUBEVENT);
  if (word == nullptr || tools::EqualsIgnoringCase(*word, tools::SUBEVENT_START_WORD)) {
    return {};
  }
  if (!tools::EqualsIgnoringCase(*word, tools::SUBEVENT_END_WORD)) {
    return {RULE_SUBEVENT, *word};
  }
  const std::string* parent = HeaderOf(head, tools::HEADER_PARENT_UID);
  if (parent == nullptr) {
    return {RULE_PARENT_MISSING, {}};
  }
  return view.parentIsOpen ? Judgement() : Judgement{RULE_PARENT, *parent};
}

}  // namespace

Judgement JudgeMessage(const Head& head, std::string_view body, const ConnectionView& view) {
  if (head.isResponse) {
    return {RULE_RESPONSE, {}};
  }
  if (!view.isMain) {
    return JudgeExtra(head);
  }
  const std::string protocolName = HeaderText(head, tools::HEADER_PROTOCOL_NAME);
  if (!tools::EqualsIgnoringCase(protocolName, tools::PROTOCOL_NAME)) {
    return {RULE_PROTOCOL_NAME, protocolName};
  }
  const std::string* uid = HeaderOf(head, tools::HEADER_UID);
  if (uid == nullptr) {
    return {RULE_UID_MISSING, {}};
  }
  if (uid->size() > tools::UID_LIMIT) {
    return {RULE_UID_TOO_LONG, std::to_string(uid->size()) + " bytes"};
  }
  const std::string* version = HeaderOf(head, tools::HEADER_PROTOCOL_VERSION);
  if (version == nullptr) {
    return {RULE_VERSION_MISSING, {}};
  }
  if (!BeginsWithOneAndDot(*version) && *version != tools::VERSION_2) {
    return {RULE_VERSION, *version};
  }
  Judgement subevent = JudgeSubevent(head, view);
  if (subevent.rule != RULE_ACCEPTED) {
    return subevent;
  }
  if (head.contentLength < 1 || body.empty()) {
    const std::string* length = HeaderOf(head, tools::HEADER_CONTENT_LENGTH);
    return {RULE_NO_BODY, length == nullptr ? "no Content-Length" : "Content-Length " + *length};
  }
  Judgement document = JudgeDocument(body, IsVersion2(head));
  if (document.rule == RULE_ACCEPTED ||
      static_cast<std::size_t>(head.contentLength) <= body.size()) {
    return document;
  }
  document.detail += (document.detail.empty() ? "" : "; ") + std::string("only ") +
                     std::to_string(body.size()) + " of " + std::to_string(head.contentLength) +
                     " bytes of the body had come";
  return document;
}

void ListElements(std::string_view body, std::size_t bodyOffset, std::vector<Field>* fields) {
  std::vector<const char*> names = {"StatusOut"};
  for (const bool isVersion2 : {false, true}) {
    for (const Element& element : ElementsOf(isVersion2)) {
      names.push_back(element.name);
    }
  }
  std::vector<Field> found;
  for (const char* name : names) {
    Field field;
    const bool isNew = FindElement(body, name, &field) &&
                       std::none_of(found.begin(), found.end(),
                                    [&](const Field& known) { return known.name == field.name; });
    if (isNew) {
      field.offset += bodyOffset;
      found.push_back(field);
    }
  }
  std::sort(found.begin(), found.end(),
            [](const Field& left, const Field& right) { return left.offset < right.offset; });
  fields->insert(fields->end(), found.begin(), found.end());
}

bool FindElement(std::string_view body, const char* name, Field* found) {
  const std::string_view text = UpToNul(body);
  const std::string startTag = "<" + std::string(name) + ">";
  const std::string endTag = "</" + std::string(name) + ">";
  const std::size_t tag = text.find(startTag);
  if (tag == std::string_view::npos) {
    return false;
  }
  const std::size_t start = tag + startTag.size();
  const std::size_t end = text.find(endTag, start);
  if (end == std::string_view::npos) {
    return false;
  }
  *found = {start, end - start, name, std::string(text.substr(start, end - start))};
  return true;
}

bool IsVersion2(const Head& head) {
  return HeaderText(head, tools::HEADER_PROTOCOL_VERSION) == tools::VERSION_2;
}

}  // namespace zvqrn::scanner
