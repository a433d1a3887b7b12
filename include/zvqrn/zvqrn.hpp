// zvqrn.hpp - the library for C++17 hosts: a service object, callbacks that may be any function
// object, and records whose texts are std::string_view.  It only wraps zvqrn.h, which says more
// about everything here, and which a host may use beside it or instead.
//
//   zvqrn::Callbacks callbacks;
//   callbacks.onRequest = [](const zvqrn::Request& request) {
//     std::cout << request.driverName << std::endl;
//     return zvqrn::Answer::Ok;
//   };
//   zvqrn::Service service(callbacks);
//   if (service.Start() == zvqrn::StartResult::Failed) ...
//
// Nothing here throws of itself, and it compiles without exceptions and RTTI.  Texts from scanners
// are bytes that anyone on the network can choose.
#ifndef ZVQRN_ZVQRN_HPP
#define ZVQRN_ZVQRN_HPP

#include <zvqrn/zvqrn.h>

#include <cstddef>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#if defined(__cpp_exceptions) || defined(_CPPUNWIND)
#define QRN_TRY try
#define QRN_CATCH_ALL catch (...)
#else
#define QRN_TRY if constexpr (true)
#define QRN_CATCH_ALL else
#endif

namespace zvqrn {

// The result of onRequest: what the scanner is answered.
enum class Answer : int32_t {
  Ok = QRN_RESPONSE_OK,
  ParamErr = QRN_RESPONSE_PARAM_ERR,
  ParseErr = QRN_RESPONSE_PARSE_ERR,
  PmExecuteErr = QRN_RESPONSE_PM_EXECUTE_ERR,
  PmNotInstall = QRN_RESPONSE_PM_NOT_INSTALL,
  TwainNotInstall = QRN_RESPONSE_TWAIN_NOT_INSTALL,
  Error = QRN_RESPONSE_ERROR,
  Busy = QRN_RESPONSE_BUSY
};

enum class Exchange : int32_t {
  Single = SUBEVENT_NONE,
  Start = SUBEVENT_START,
  End = SUBEVENT_END
};

enum class ImageFormat : int32_t {
  Pdf = QRN_IMAGE_PDF,
  Tiff = QRN_IMAGE_TIFF,
  Jpeg = QRN_IMAGE_JPEG
};

enum class ColorType : int32_t { Color = QRN_COLOR_COLOR, Monochrome = QRN_COLOR_MONOCHROME };

enum class LoadPaper : int32_t {
  Auto = QRN_LOAD_AUTO,
  Flatbed = QRN_LOAD_FLATBED,
  Single = QRN_LOAD_SINGLE,
  Double = QRN_LOAD_DOUBLE
};

enum class PaperType : int32_t {
  Auto = QRN_PAPER_AUTO,
  User = QRN_PAPER_USER,
  A3 = QRN_PAPER_A3,
  A4 = QRN_PAPER_A4,
  A4Landscape = QRN_PAPER_A4_LANDSCAPE,
  B4 = QRN_PAPER_B4,
  B5 = QRN_PAPER_B5,
  B5Landscape = QRN_PAPER_B5_LANDSCAPE,
  Letter = QRN_PAPER_LETTER,
  LetterLandscape = QRN_PAPER_LETTER_LANDSCAPE,
  Legal = QRN_PAPER_LEGAL
};

enum class StatusCode : int32_t { NoNetwork = QRN_STATUS_NO_NETWORK, Restart = QRN_STATUS_RESTART };

// Names a request, to send to its scanner.  A value of its own: copy it, keep it, use it on any
// thread.
class RequestId {
 public:
  explicit RequestId(const EventHeader& header) : header_(header) {}

  // Sends data to the scanner that made the request.  True when the data is on its way; false when
  // it is empty, when the request is not open any more (a single one is until its callback has
  // returned, a START until its END has been answered), or when the service does not run.
  bool Send(std::string_view data) const {
    EventHeader copy = header_;  // the library writes into it
    return data.size() <= INT32_MAX &&
           QRNSendData(&copy, data.data(), static_cast<int32_t>(data.size())) == 1;
  }
  bool Send(const void* data, std::size_t size) const {
    return Send(std::string_view(static_cast<const char*>(data), size));
  }

 private:
  EventHeader header_;
};

// The settings of a version 1 request.  Sizes and positions are as the scanner states them, without
// a unit.
struct Settings {
  ImageFormat imageFormat;
  ColorType colorType;
  LoadPaper loadPaper;
  PaperType paperType;
  int32_t paperWidth;
  int32_t paperHeight;
  int32_t scanX;
  int32_t scanY;
};

// One push-scan request.  Its texts are the library's and live until onRequest returns.
struct Request {
  RequestId id;
  Exchange exchange;
  std::string_view uid;              // the scanner's name for the message
  std::string_view protocolVersion;  // "1.00" or "2.00"
  std::string_view driverName;       // the TWAIN driver that serves the scanner on this PC
  std::string_view productName;      // as the scanner sent it, version 2 only
  std::string_view ipAddress;        // the scanner's address as it states it
  std::optional<Settings> settings;  // version 1: what the scanner is set to
  int32_t pushScanId;                // version 2: 1 to 3, which settings kept on this PC; else 0
};

// A scanner that looks for this PC by its own name.  The texts live until acceptScanner returns.
struct Scanner {
  std::string_view driverName;
  std::string_view serviceType;
  std::string_view scopeList;
  std::string_view tagList;
};

// What a host is called for.  All but onRequest may be empty.  Each says on which thread it comes,
// and which functions may be called there, in zvqrn.h.
struct Callbacks {
  // PeerFilterCallback: whether this scanner may list this PC.  Without it all may.
  std::function<bool(const Scanner&)> acceptScanner;
  // ScanEventCallback.  Without it every request is answered Error.
  std::function<Answer(const Request&)> onRequest;
  // StatusCallback: locks of the library are held, so return soon and call nothing of it.
  std::function<void(StatusCode, std::string_view message)> onStatus;
  // A callback has thrown: the scanner is answered Error, or not at all.  Called while the
  // exception is handled, so that std::current_exception() gives it; what this one throws is
  // dropped.
  std::function<void()> onException;
};

enum class StartResult {
  Serving,
  Waiting,  // for this PC to get an address; onStatus has been told NoNetwork
  Failed    // see the results of QRNStartService
};

namespace detail {

// How many callbacks this thread is in: a stop there would wait for itself.
inline thread_local int callbacksHere = 0;

struct CallbackScope {
  CallbackScope() { ++callbacksHere; }
  ~CallbackScope() { --callbacksHere; }
  CallbackScope(const CallbackScope&) = delete;
  CallbackScope& operator=(const CallbackScope&) = delete;
};

// The text in `size` bytes, which ends at the first NUL.
inline std::string_view Text(const void* bytes, std::size_t size) {
  const std::string_view all(static_cast<const char*>(bytes), size);
  return all.substr(0, all.find('\0'));
}

// A driver's name in a version 1 record runs on into what follows its field.
constexpr std::size_t DRIVER_NAME_SIZE = 34;

inline Request MakeRequest(const EventHeader& header, int32_t kind, const void* data) {
  Request request{RequestId(header),
                  static_cast<Exchange>(header.subevent),
                  Text(header.uid, sizeof header.uid),
                  Text(header.protocolVersion, sizeof header.protocolVersion),
                  {},
                  {},
                  {},
                  std::nullopt,
                  0};
  if (kind == DOCUMENT_PUSHSCAN_V2) {
    const auto& record = *static_cast<const PushScanIdRecord*>(data);
    request.driverName = Text(record.driverName, sizeof record.driverName);
    request.productName = Text(record.productName, sizeof record.productName);
    request.ipAddress = Text(record.ipAddress, sizeof record.ipAddress);
    request.pushScanId = record.pushScanId;
  } else {
    const auto& record = *static_cast<const PushScanRequestRecord*>(data);
    request.driverName = Text(data, DRIVER_NAME_SIZE);
    request.ipAddress = Text(record.ipAddress, sizeof record.ipAddress);
    request.settings = Settings{static_cast<ImageFormat>(record.imageFormat),
                                static_cast<ColorType>(record.colorType),
                                static_cast<LoadPaper>(record.loadPaper),
                                static_cast<PaperType>(record.paperType),
                                record.paperWidth,
                                record.paperHeight,
                                record.scanX,
                                record.scanY};
  }
  return request;
}

// Calls a function for the library, which knows no exceptions; gives `otherwise` if it throws.
template <typename Function>
int32_t Guarded(const Callbacks& callbacks, int32_t otherwise, Function function) noexcept {
  const CallbackScope scope;
  QRN_TRY {
    return function();
  }
  QRN_CATCH_ALL {
    QRN_TRY {
      if (callbacks.onException) {
        callbacks.onException();
      }
    }
    QRN_CATCH_ALL {}
  }
  return otherwise;
}

inline int32_t QRN_CALLBACK OnPeer(const PeerDescription* peer, FilterContext context) noexcept {
  const auto& callbacks = *static_cast<const Callbacks*>(context);
  return Guarded(callbacks, 0, [&]() -> int32_t {
    const Scanner scanner{peer->driverName, peer->serviceType, peer->scopeList, peer->tagList};
    return !callbacks.acceptScanner || callbacks.acceptScanner(scanner) ? 1 : 0;
  });
}

inline int32_t QRN_CALLBACK OnEvent(EventHeader* header, int32_t kind, const void* data,
                                    int32_t /*size*/, EventContext context) noexcept {
  const auto& callbacks = *static_cast<const Callbacks*>(context);
  return Guarded(callbacks, QRN_RESPONSE_ERROR, [&]() -> int32_t {
    return callbacks.onRequest
               ? static_cast<int32_t>(callbacks.onRequest(MakeRequest(*header, kind, data)))
               : static_cast<int32_t>(QRN_RESPONSE_ERROR);
  });
}

inline int32_t QRN_CALLBACK OnStatus(int32_t /*statusClass*/, int32_t code, const char* message,
                                     StatusContext context) noexcept {
  const auto& callbacks = *static_cast<const Callbacks*>(context);
  return Guarded(callbacks, 0, [&]() -> int32_t {
    if (callbacks.onStatus) {
      callbacks.onStatus(static_cast<StatusCode>(code), message);
    }
    return 0;
  });
}

}  // namespace detail

// The service of this process, of which there can be one.  Start and Stop from one thread at a
// time, and never from a callback.  The end of the object stops the service; inside a callback,
// where that cannot be, it ends the program (std::terminate).
class Service {
 public:
  explicit Service(Callbacks callbacks) : callbacks_(std::move(callbacks)) {}
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;
  ~Service() {
    if (started_ && !Stop()) {
      std::terminate();
    }
  }

  // Starts the service.  Failed also when it runs already, here or in another object.
  StartResult Start() {
    if (started_ || QRNStartService(detail::OnPeer, detail::OnEvent, detail::OnStatus, &callbacks_,
                                    &callbacks_, &callbacks_) != 1) {
      return StartResult::Failed;
    }
    started_ = true;
    return IsServing() ? StartResult::Serving : StartResult::Waiting;
  }

  // Stops the service that this object has started, and waits for its callbacks.  True when none
  // runs any more or will come; false inside a callback, when nothing was done.
  bool Stop() {
    if (detail::callbacksHere > 0) {
      return false;
    }
    if (std::exchange(started_, false)) {
      QRNStopService();
    }
    return true;
  }

  // Whether scanners are served now: not while the service waits for an address.
  static bool IsServing() {
    int32_t length = 0;
    return QRNGetPCName(nullptr, &length) == 1;
  }

  // The name under which scanners list this PC; empty while the service does not serve.
  static std::string PcName() {
    std::string name(PC_NAME_SIZE, '\0');
    int32_t length = PC_NAME_SIZE;
    int32_t result = QRNGetPCName(name.data(), &length);
    while (result == QRN_BUFFER_TOO_SMALL) {
      name.resize(static_cast<std::size_t>(length));
      result = QRNGetPCName(name.data(), &length);
    }
    name.resize(result == 1 ? static_cast<std::size_t>(length) : 0);
    return name;
  }

  // Replaces that name until the stop.  False when it is not 1 to 15 bytes long, ends inside a
  // character, or the service does not serve.
  static bool SetPcName(std::string_view name) {
    return name.size() <= PC_NAME_SIZE &&
           QRNSetPCName(name.data(), static_cast<int32_t>(name.size())) == 1;
  }

 private:
  static constexpr int32_t PC_NAME_SIZE = 15;

  Callbacks callbacks_;
  bool started_ = false;
};

}  // namespace zvqrn

#undef QRN_TRY
#undef QRN_CATCH_ALL

#endif
