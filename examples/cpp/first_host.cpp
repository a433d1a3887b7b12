// first_host - a host program in C++17: prints every push-scan request and answers it.
//
//   first_host [ANSWER [SECONDS]]
//
// ANSWER is the number of a QRN_RESPONSE_ code (default 1, OK; 9 declines).  It runs for SECONDS,
// or until Ctrl-C.  Linked to the library, so the system says so itself when ZVQRN.dll or
// libZVQRN.so is missing.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <string_view>
#if defined(_WIN32)
#include <windows.h>
#else
#include <time.h>
#endif

#include <zvqrn/zvqrn.h>

namespace {

volatile std::sig_atomic_t interrupted = 0;

void SleepTenth() {
#if defined(_WIN32)
  Sleep(100);
#else
  const timespec time = {0, 100'000'000};
  nanosleep(&time, nullptr);
#endif
}

// A text of a record.  Anyone on the network can choose its bytes: what could disturb a terminal
// becomes a question mark.
std::string Shown(const char* text, std::size_t limit) {
  const std::string_view bytes(text, limit);
  std::string shown(bytes.substr(0, bytes.find('\0')));
  for (char& byte : shown) {
    byte = byte >= ' ' && byte <= '~' && byte != '"' ? byte : '?';
  }
  return shown;
}

std::string Describe(const EventHeader& header, int32_t kind, const void* data) {
  constexpr const char* EXCHANGES[] = {"single", "START", "END"};
  std::ostringstream text;
  text << "request " << Shown(header.uid, sizeof header.uid) << ": "
       << EXCHANGES[header.subevent >= 0 && header.subevent <= 2 ? header.subevent : 0];
  if (kind == DOCUMENT_PUSHSCAN_V1) {
    const auto* record = static_cast<const PushScanRequestRecord*>(data);
    text << ", driver \"" << Shown(static_cast<const char*>(data), 34)  // 34: see the header
         << "\", scanner " << Shown(record->ipAddress, sizeof record->ipAddress) << ", format "
         << record->imageFormat << ", colour " << record->colorType << ", paper "
         << record->paperType;
  } else if (kind == DOCUMENT_PUSHSCAN_V2) {
    const auto* record = static_cast<const PushScanIdRecord*>(data);
    text << ", driver \"" << Shown(record->driverName, sizeof record->driverName) << "\", scanner "
         << Shown(record->ipAddress, sizeof record->ipAddress) << ", push-scan ID "
         << record->pushScanId;
  }
  return text.str() + "\n";
}

int32_t QRN_CALLBACK OnPeer(const PeerDescription*, FilterContext) {
  return 1;  // answer every scanner that looks for this PC
}

// Called on a thread of the library, several at once.  The pointers die when it returns: a host
// that will call QRNSendData keeps a copy of *header, and gives a copy of that to each call.  No
// exception may leave a callback, the library's code knows none.
int32_t QRN_CALLBACK OnRequest(EventHeader* header, int32_t kind, const void* data, int32_t,
                               EventContext context) {
  try {
    std::cout << Describe(*header, kind, data) << std::flush;
    return *static_cast<const int32_t*>(context);
  } catch (...) {
    return QRN_RESPONSE_ERROR;
  }
}

// Locks of the library are held in here: return soon, and call none of its functions.
int32_t QRN_CALLBACK OnStatus(int32_t statusClass, int32_t code, const char* message,
                              StatusContext) {
  std::fprintf(stderr, "status %d/%d: %s%s\n", statusClass, code, message,
               code == QRN_STATUS_NO_NETWORK ? "  Waiting until this PC has an address." : "");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  int32_t answer = argc > 1 ? std::atoi(argv[1]) : QRN_RESPONSE_OK;
  const long seconds = argc > 2 ? std::atol(argv[2]) : 0;
  std::signal(SIGINT, [](int) { interrupted = 1; });
  if (QRNStartService(OnPeer, OnRequest, OnStatus, nullptr, &answer, nullptr) != 1) {
    std::cerr << "The service did not start: another host holds port 2968, or the PC's name or\n"
                 "address could not be had.  quorin-scanner doctor --local says more.\n";
    return 1;
  }
  std::cout << "Waiting for requests; Ctrl-C ends." << std::endl;
  for (long tenths = 0; interrupted == 0 && (seconds == 0 || tenths < 10 * seconds); ++tenths) {
    SleepTenth();
  }
  QRNStopService();  // no callback comes after this; 0 only if it was still waiting for a network
  return 0;
}
