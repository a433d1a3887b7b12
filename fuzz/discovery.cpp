// Discovery's datagrams: one that decodes is encoded to what decodes to the same message, and it is
// accepted by the rules in docs/protocol.md, once as long as it is not answered.

#include "discovery/requests.h"
#include "support/fuzz_target.h"

namespace zvqrn::fuzz {

static OwnedSlpMessage Decode(const std::string& bytes) {
  const SuspiciousBlock block = BlockOf(bytes);
  SlpMessage* made = nullptr;
  REQUIRE((DecodeSlpMessage(block.Data(), block.length, &made) == SLP_OK) == (made != nullptr));
  return OwnedSlpMessage(made);
}

static std::string Text(const OwnedSlpMessage& message,
                        std::int32_t (*read)(const SlpMessage*, const char**)) {
  const char* text = nullptr;
  return read(message.get(), &text) > 0 ? text : "";
}

static std::string Encode(const OwnedSlpMessage& message) {
  const SuspiciousBlock out =
      BlockOf(std::string(static_cast<std::size_t>(message->header->length), '?'));
  return Bytes(out.Data(), EncodeSlpMessage(message.get(), out.bytes.get()));
}

static void CheckCodec(const OwnedSlpMessage& message) {
  // Behind its texts a received message may have had more than is written, or two bytes less.
  message->header->length += 2;
  message->header->length = static_cast<std::int32_t>(Encode(message).size());
  const OwnedSlpMessage again = Decode(Encode(message));
  // A reply with a list of less than five bytes is written, and too short to be read.
  REQUIRE(again ? Encode(again) == Encode(message) : message->header->functionId == SLP_ATTR_RPLY);
  const std::string list = "(list)" + Text(message, GetScopeList) + '\0';
  SlpMessage* made = nullptr;
  BuildAttrRply(GetXid(message.get()), 0, BlockOf(list).Data(), message->header->languageTag,
                &made);
  const std::string reply = Encode(OwnedSlpMessage(made));
  const OwnedSlpMessage read = Decode(reply);
  REQUIRE(read && Encode(read) == reply && GetXid(read.get()) == GetXid(message.get()));
  REQUIRE(static_cast<AttrRplyBody*>(read->body)->attributeList.bytes == std::string(list.c_str()));
}

void FuzzOne(FuzzedDataProvider* data) {
  const std::string input = data->ConsumeRemainingBytesAsString();
  const SuspiciousBlock bytes = BlockOf(input);
  const OwnedSlpMessage message = Decode(input);
  service.localAddress = 0x0100007F;
  CreateServiceLock(&service.identityLock, 1, 1);
  CreateServiceLock(&service.discoveryTableLock, 1, 1);
  ListNode* node = HandleDatagram(bytes.Data(), bytes.length, 1);
  const std::string scope = Text(message, GetScopeList);
  const bool isDefault = EqualsIgnoringCase(scope.c_str(), SLP_DEFAULT_SCOPE) == 0;
  const std::string heard = "," + Text(message, GetPreviousResponders) + ",";
  const bool mayBeAnswered =
      EqualsIgnoringCase(Text(message, GetUrl).c_str(), SLP_SERVICE_TYPE) == 0 &&
      GetLanguageTag(message.get(), nullptr) > 0 && heard.find(",127.0.0.1,") == heard.npos;
  REQUIRE(isDefault ? mayBeAnswered == (node != nullptr) : mayBeAnswered || node == nullptr);
  REQUIRE(HandleDatagram(bytes.Data(), bytes.length, 1) == nullptr);
  if (node != nullptr) {
    const auto* request = static_cast<const DiscoveryRequest*>(node->item);
    REQUIRE((request->peerDescription == nullptr) == isDefault);
    REQUIRE(isDefault || request->peerDescription->scopeList == scope);
    RemoveDiscoveryRequest(node);
    REQUIRE(HandleDatagram(bytes.Data(), bytes.length, 1) != nullptr);
  }
  DestroyTable(&service.discoveryTable, &service.discoveryTableLock);
  DestroyServiceLock(&service.identityLock);
  if (message) {
    CheckCodec(message);
  }
}

}  // namespace zvqrn::fuzz
