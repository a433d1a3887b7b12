#include <functional>
#include <memory>
#include <random>

#include "platform/thread.h"
#include "scanner/stress/bad_peer.h"
#include "scanner/stress/stress.h"
#include "scanner/stress/stress_cases.h"

namespace zvqrn::scanner {

namespace {

// One main connection, and fewer extra ones than a PC has, so that a good scanner is still
// answered.
constexpr std::size_t FEW = 4;
// More than a PC has.
constexpr std::size_t MANY = 8;
constexpr std::size_t STORM = 300;
constexpr std::size_t PIPELINE = 200;
constexpr std::int32_t HALF_OPEN_PATIENCE_MS = 1;

using Peers = std::vector<std::unique_ptr<BadPeer>>;

// Connects anew in the place of every peer that has lost its connection.
void Connect(Attack* attack, std::size_t count, Peers* peers) {
  peers->resize(count);
  for (std::unique_ptr<BadPeer>& peer : *peers) {
    if ((!peer || !peer->IsOpen()) && !attack->stop) {
      peer = std::make_unique<BadPeer>(attack);
    }
  }
}

// Has a few peers do the same, again and again, until the attack is stopped.
void Repeat(Attack* attack, std::size_t count, std::int32_t restMs,
            const std::function<void(BadPeer* peer, std::size_t number)>& act) {
  Peers peers;
  while (!attack->stop) {
    Connect(attack, count, &peers);
    for (std::size_t i = 0; i < count && !attack->stop; ++i) {
      act(peers[i].get(), i);
    }
    Rest(*attack, restMs);
  }
}

void Silent(Attack* attack) {
  Repeat(attack, MANY, 100, [](BadPeer* peer, std::size_t) { peer->Read(0); });
}

void Slow(Attack* attack) {
  struct Drip {
    std::string bytes;
    std::size_t sent = 0;
  };
  std::vector<Drip> drips(FEW);
  Repeat(attack, FEW, 20, [&](BadPeer* peer, std::size_t number) {
    Drip& drip = drips[number];
    if (drip.sent >= drip.bytes.size() || peer->Unanswered() == 0) {
      const std::string uid = FreshUid(attack);
      drip = {RequestText(*attack, EXCHANGE_OF_ONE, uid), 0};
      peer->SendRequest({}, uid, "0001|1003|2003");
    }
    // One byte at a time, and each further peer four times as many.
    const std::size_t step = std::size_t{1} << 2 * number;
    peer->Send(drip.bytes.substr(drip.sent, step));
    drip.sent += step;
    peer->Read(0);
  });
}

void EndlessHead(Attack* attack) {
  Repeat(attack, FEW, 1, [](BadPeer* peer, std::size_t number) {
    const std::string line = "x-header : " + std::string(number == 0 ? 5000 : 50, 'x') + "\r\n";
    peer->Send(number == 0 ? line : "POST /PushScan HTTP/1.0\r\n" + line);
    peer->Read(0);
  });
}

void EndlessBody(Attack* attack) {
  const std::string piece(65536, 'x');
  Repeat(attack, FEW, 0, [&](BadPeer* peer, std::size_t) {
    if (peer->Unanswered() == 0) {
      RequestOptions options = attack->request;
      options.hasBody = true;
      options.body = piece;
      options.replacedHeaders = {{"Content-Length", "2147483647"}};
      const std::string uid = FreshUid(attack);
      peer->SendRequest(MessageBytes(MakeRequest(options, EXCHANGE_OF_ONE, uid, {})), uid, "2003");
    }
    peer->Send(piece);
    peer->Read(0);
  });
}

void Huge(Attack* attack) {
  RequestOptions options = attack->request;
  options.hasBody = true;
  options.body = MakeRequest(attack->request, EXCHANGE_OF_ONE, "x", {}).body;
  options.body.resize(16 * 1024 * 1024 - 1024, ' ');
  Repeat(attack, 2, 0, [&](BadPeer* peer, std::size_t) {
    const std::string uid = FreshUid(attack);
    const Message message = MakeRequest(options, EXCHANGE_OF_ONE, uid, {});
    peer->SendRequest(MessageBytes(message), uid, "0001|1003|2003");
    peer->Read(2000);
  });
}

void Resetting(Attack* attack) {
  std::size_t cut = 0;
  Repeat(attack, FEW, 1, [&](BadPeer* peer, std::size_t) {
    const std::string bytes = RequestText(*attack, EXCHANGE_START, FreshUid(attack));
    cut = (cut + 37) % (bytes.size() + 1);
    peer->Send(bytes.substr(0, cut));
    peer->BreakOff();
  });
}

void HalfClosing(Attack* attack) {
  std::size_t cut = 0;
  Repeat(attack, FEW, 1, [&](BadPeer* peer, std::size_t) {
    const std::string uid = FreshUid(attack);
    const std::string bytes = RequestText(*attack, EXCHANGE_OF_ONE, uid);
    cut = (cut + 1) % 3;
    peer->SendRequest(bytes.substr(0, bytes.size() * (3 - cut) / 3), uid, "0001|1003|2003");
    peer->EndSending();
    peer->Read(200);
    peer->Close();
  });
}

void NeverReading(Attack* attack) {
  RequestOptions refused = attack->request;
  refused.versionText = "3.00";
  Repeat(attack, FEW, 1, [&](BadPeer* peer, std::size_t) {
    peer->Send(RequestText(*attack, EXCHANGE_START, FreshUid(attack)));
    std::string flood;
    for (std::size_t i = 0; i < PIPELINE; ++i) {
      flood += MessageBytes(MakeRequest(refused, EXCHANGE_OF_ONE, FreshUid(attack), {}));
    }
    peer->Send(flood);
  });
}

void Storm(Attack* attack) {
  attack->inPlace = true;
  while (!attack->stop) {
    Peers peers;
    while (peers.size() < STORM && !attack->stop) {
      peers.push_back(std::make_unique<BadPeer>(attack, HALF_OPEN_PATIENCE_MS));
    }
    peers.clear();
    Rest(*attack, 20);
  }
}

// One connection goes through the cases, with a pause after each that is dropped, since what
// follows a dropped head at once may be dropped with it.
void RunCases(Attack* attack, const std::vector<StressCase>& cases) {
  Peers peers;
  for (std::size_t next = 0; !attack->stop; next = (next + 1) % cases.size()) {
    Connect(attack, 1, &peers);
    const StressCase& one = cases[next];
    const std::string uid = one.uid.empty() ? FreshUid(attack) : one.uid;
    peers[0]->SendRequest(one.make(*attack, uid), uid, one.statuses);
    peers[0]->Read(one.statuses.empty() ? 500 : 2000);
    if (one.statuses.empty()) {
      peers[0]->Forget(uid);
    }
  }
}

void Limits(Attack* attack) {
  RunCases(attack, LimitCases());
}

void Values(Attack* attack) {
  RunCases(attack, ValueCases());
}

// Sends many requests of one sort before it reads the first answer.
void Pipeline(Attack* attack, Exchange exchange) {
  Repeat(attack, FEW, 0, [&](BadPeer* peer, std::size_t) {
    for (std::size_t i = 0; i < PIPELINE && peer->IsOpen() && !attack->stop; ++i) {
      const std::string uid = FreshUid(attack);
      peer->SendRequest(RequestText(*attack, exchange, uid), uid, "0001");
    }
    peer->Read(2000);
  });
}

void Flood(Attack* attack) {
  Pipeline(attack, EXCHANGE_OF_ONE);
}

void OpenStarts(Attack* attack) {
  Pipeline(attack, EXCHANGE_START);
}

void EndsFirst(Attack* attack) {
  Repeat(attack, FEW, 0, [&](BadPeer* peer, std::size_t) {
    const std::string start = FreshUid(attack);
    const auto end = [&](const char* status) {
      const std::string uid = FreshUid(attack);
      peer->SendRequest(RequestText(*attack, EXCHANGE_END, uid, start), uid, status);
      peer->Read(2000);
    };
    end("2002");
    peer->SendRequest(RequestText(*attack, EXCHANGE_START, start), start, "0001");
    peer->Read(2000);
    // A START that the library has answered by itself is not open.
    end(attack->reachesHost ? "0001" : "0001|2002");
    end("2002");
  });
}

std::string RandomBytes(std::minstd_rand* random, std::size_t most) {
  std::string bytes((*random)() % most + 1, '\0');
  for (char& byte : bytes) {
    byte = static_cast<char>((*random)());
  }
  return bytes;
}

void Garbage(Attack* attack) {
  std::minstd_rand random(attack->firstUid + 1);
  Repeat(attack, FEW, 2, [&](BadPeer* peer, std::size_t number) {
    const std::string bytes = RandomBytes(&random, 3000);
    peer->Send(number % 2 == 0 ? bytes : "POST /PushScan HTTP/1.0\r\n" + bytes + "\r\n\r\n");
    peer->Read(0);
  });
}

// Datagrams of every sort: requests with fresh XIDs (as many as a busy network might bring),
// the same cut short, made of other texts, and random bytes.
void Discovery(Attack* attack) {
  attack->inPlace = true;
  const platform::SocketHandle socket = platform::OpenUdpSocket();
  std::minstd_rand random(attack->firstUid + 1);
  std::vector<std::uint32_t> targets = {attack->address};
  if (attack->multicast) {
    std::uint32_t group = 0;
    platform::TextToAddress("239.255.255.253", &group);
    targets.push_back(group);
  }
  const auto send = [&](const std::string& bytes) {
    for (const std::uint32_t target : targets) {
      const platform::Endpoint receiver{target, 2968};
      if (platform::SendDatagramTo(socket, bytes.data(), static_cast<std::int32_t>(bytes.size()),
                                   receiver)) {
        ++attack->tally.messages;
        attack->tally.bytes += static_cast<std::int64_t>(bytes.size());
      }
    }
  };
  while (!attack->stop && socket > platform::NO_SOCKET) {
    for (const std::string& bytes :
         DiscoveryCases(static_cast<std::uint16_t>(++attack->firstUid))) {
      send(bytes);
    }
    for (int i = 0; i < 10; ++i) {
      send(RandomBytes(&random, 1500));
    }
    platform::SleepMilliseconds(10);
  }
  if (socket > platform::NO_SOCKET) {
    platform::CloseSocket(socket);
  }
}

}  // namespace

const std::vector<Kind>& Kinds() {
  static const std::vector<Kind> kinds = {
      {"silent", "connect and say nothing", true, false, Silent},
      {"slow", "send a request byte by byte", false, false, Slow},
      {"endless-head", "send a head that never ends", true, false, EndlessHead},
      {"endless-body", "announce 2 GB and send them", true, false, EndlessBody},
      {"huge", "send requests of 16 MiB", true, false, Huge},
      {"reset", "break off in the middle of a message", true, false, Resetting},
      {"half-close", "ask and say at once that nothing more will be sent", true, false,
       HalfClosing},
      {"never-read", "ask for much and take nothing", true, false, NeverReading},
      {"storm", "connect and drop, hundreds at a time", true, false, Storm},
      {"limits", "uids and headers at and past every limit", false, false, Limits},
      {"values", "documents with values out of range", false, false, Values},
      {"flood", "send hundreds of requests without waiting", false, false, Flood},
      {"end-first", "send ENDs before and after their STARTs", true, false, EndsFirst},
      {"open-starts", "send STARTs by the thousand and no END", false, false, OpenStarts},
      {"garbage", "send random bytes", true, false, Garbage},
      {"discovery", "flood the search for PCs", false, true, Discovery},
  };
  return kinds;
}

}  // namespace zvqrn::scanner
