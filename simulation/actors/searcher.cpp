// Scanners that search for PCs.

#include "actors/actors.h"
#include "platform/socket.h"

namespace zvqrn::simulation {
namespace {

constexpr std::uint16_t PORT = 2968;
constexpr char GROUP[] = "239.255.255.253";

std::string OwnAddress() {
  char text[platform::ADDRESS_TEXT_SIZE] = "10.68.0.2";
  if (const Interface* own = OwnInterface()) {
    platform::AddressToText(own->address, text);
  }
  return text;
}

Search MakeSearch(Dice* dice, std::int32_t number, std::int32_t count) {
  // Others may use the same XID; the sender's own differ.
  Search search{static_cast<std::int32_t>(dice->Below(3)) * 1024 + count,
                "en",
                "",
                "service:Quorin-agent",
                "default",
                "t" + std::to_string(number) + "." + std::to_string(count),
                dice->OneIn(3) ? static_cast<std::int32_t>(dice->Below(3)) : 1,
                number,
                "",
                {}};
  switch (dice->Below(16)) {
    case 0:
      search.scope = "DEFAULT";
      search.url = "SERVICE:QUORIN-AGENT";
      break;
    case 1:
      search.scope = "default,other";
      break;
    case 2:
      search.scope = "";
      break;
    case 3:
      search.url = "service:Quorin-agent2";
      break;
    case 4:
      search.responders = "10.0.0.1," + OwnAddress();
      break;
    case 5:
      search.responders = "10.0.0.1,,10.68.0.9,1" + OwnAddress() + "," + OwnAddress() + "1";
      break;
    case 6:
      search.language = "";
      break;
    case 7:
      search.scope = "unknown";
      break;
    case 8:
      search.tags.resize(1500, 't');
      break;
    case 9:
    case 10:
    case 11:
      search.scope = "XS-200";
      break;
    case 12:
      search.language.resize(1330, 'l');  // the reply is longer than a packet
      break;
    case 13:
      for (int i = 0; i < 120; i++) {
        search.responders += "10.0.0.1,";
      }
      break;
    default:
      break;
  }
  WriteSearch(&search);
  return search;
}

}  // namespace

void SearchForPcs(Dice dice, std::int32_t number, std::int32_t count) {
  const platform::SocketHandle socket = platform::OpenUdpSocket();
  const platform::SocketHandle other = platform::OpenUdpSocket();
  platform::BindDatagramPort(socket, 0, PORT, true);
  std::uint32_t group = 0;
  platform::TextToAddress(GROUP, &group);
  for (std::int32_t i = 0; i < count; i++) {
    const Search search = MakeSearch(&dice, number, i);
    book.searches.push_back(search);
    const std::int64_t times = dice.OneIn(3) ? dice.Between(2, 3) : 1;
    for (std::int64_t t = 0; t < times; t++) {
      const Interface* own = OwnInterface();
      const bool byMulticast = own == nullptr || dice.OneIn(2);
      const platform::Endpoint to{byMulticast ? group : own->address, PORT};
      std::string bytes = search.bytes;
      if (dice.OneIn(12)) {
        bytes.resize(static_cast<std::size_t>(dice.Below(static_cast<std::int64_t>(bytes.size()))));
      }
      platform::SendDatagramTo(dice.OneIn(4) ? other : socket, bytes.data(),
                               static_cast<std::int32_t>(bytes.size()), to);
      Sleep(dice.Spread(2 * SECOND));
    }
    if (dice.OneIn(2)) {
      Sleep(dice.Spread(3 * SECOND));
    }
  }
  Sleep(2 * SECOND);
  platform::CloseSocket(socket);
  platform::CloseSocket(other);
}

void SendOddDatagrams(Dice dice, std::int32_t number) {
  book.oddSearches = true;
  // Escapes, empty elements, characters of one to four bytes, and what is none.
  const std::string scopes[] = {"XS\\-200", "XS-200\\", "XS-200,",      ",XS-200",
                                "XS\\,200", "\xC3\xA4", "\xE4\xBD\xA0", "\xF0\x9F\x96\xA8",
                                "\xC3",     "\xE4\xBD", "\xFF",         "\\\xC3\xA4",
                                "XS\\\\",   "\x80",     "\xF0\x9F",     "\xF8\x80",
                                "XS-200\\,"};
  const platform::SocketHandle socket = platform::OpenUdpSocket();
  for (std::int64_t i = dice.Between(10, 60); i > 0; i--) {
    Search search = MakeSearch(&dice, number, static_cast<std::int32_t>(i));
    search.scope = dice.OneIn(2) ? dice.Of(scopes) : search.scope;
    WriteSearch(&search);
    std::string& bytes = search.bytes;
    switch (dice.Below(5)) {
      case 0:
        bytes = Mutated(bytes, &dice);
        break;
      case 1:
        // One byte of the header or of a length, or another function.
        bytes[static_cast<std::size_t>(dice.Below(20))] = static_cast<char>(dice.Below(256));
        break;
      case 2:
        bytes[1] = static_cast<char>(dice.Below(13));
        break;
      case 3:
        // Cut short, and a whole message for all that its header says.
        bytes.resize(static_cast<std::size_t>(dice.Between(14, 30)));
        bytes[1] = dice.OneIn(2) ? '\x07' : '\x06';
        bytes[3] = 0;
        bytes[4] = static_cast<char>(bytes.size());
        break;
      default:
        break;
    }
    if (const Interface* own = OwnInterface()) {
      platform::SendDatagramTo(socket, bytes.data(), static_cast<std::int32_t>(bytes.size()),
                               {own->address, PORT});
    }
    Sleep(dice.Spread(100 * MS));
  }
  platform::CloseSocket(socket);
}

}  // namespace zvqrn::simulation
