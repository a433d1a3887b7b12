// The texts of discovery: list operations and escapes on any bytes, and a PC's name on its way into
// the attribute list.

#include "discovery/attribute_list.h"
#include "discovery/slp_lists.h"
#include "support/fuzz_target.h"

namespace zvqrn::fuzz {

static std::string Element(const std::string& list, std::int32_t index) {
  char* made = nullptr;
  const std::int32_t result = GetListElement(BlockOf(list + '\0').Data(), ",", index, &made);
  const OwnedBlock<char> element(made);
  REQUIRE((result == 1) == (made != nullptr));
  return made != nullptr ? made : "";
}

static std::string Utf8Of(const SuspiciousBlock& text) {
  char* converted = nullptr;
  std::int32_t length = 0;
  AnsiToUtf8(text.Data(), &converted, &length);
  const OwnedBlock<char> owner(converted);
  REQUIRE(CountUtf8Chars(converted) == text.length - 1);
  return Bytes(converted, length);
}

void FuzzOne(FuzzedDataProvider* data) {
  const std::string list = data->ConsumeRemainingBytesAsString().c_str();
  const SuspiciousBlock text = BlockOf(list + '\0');
  const OwnedBlock<char> escaped(EscapeAttributeValue(text.Data()));
  // The escaped name is one element of a list, which is the name.
  const std::string name = escaped ? escaped.get() : "";
  REQUIRE(Element("x," + Utf8Of(BlockOf(name + '\0')), 2) == Utf8Of(text));
  // What is put before a list shifts its elements by one; its first text is a member.
  std::int32_t count = 0;
  REQUIRE(CountListElements(text.Data(), ",", &count) == 1 && count >= 1);
  REQUIRE(Element("a\\,b," + list, 1) == "a,b" && Element(list, count + 1).empty());
  REQUIRE(Element("a\\,b," + list, count + 1) == Element(list, count));
  const SuspiciousBlock first = BlockOf(list.substr(0, list.find(',')) + '\0');
  REQUIRE(IsInResponderList(text.Data(), first.Data(), ',') == (first.length > 1 ? 1 : 0));
  const std::int32_t length = UnescapeInPlace(text.bytes.get());
  REQUIRE(length < 0 || text.Data()[length] == '\0');
}

}  // namespace zvqrn::fuzz
