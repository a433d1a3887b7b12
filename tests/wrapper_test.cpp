// The header for C++ hosts over a library that is played here: what it hands to the host and gives
// to the library.  The example that is built with it runs against the real one.

#include <gtest/gtest.h>
#include <zvqrn/zvqrn.hpp>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// What the library was called with, and what it is to answer.
struct PlayedLibrary {
  PeerFilterCallback filter = nullptr;
  ScanEventCallback event = nullptr;
  StatusCallback status = nullptr;
  void* filterContext = nullptr;
  void* eventContext = nullptr;
  void* statusContext = nullptr;
  int32_t startResult = 1;
  int stops = 0;
  bool serving = true;
  std::string name = "COMPUTER";
  std::vector<std::string> sent;
} library;

}  // namespace

int32_t QRN_EXPORT QRNStartService(PeerFilterCallback filterCallback,
                                   ScanEventCallback eventCallback, StatusCallback statusCallback,
                                   FilterContext filterContext, EventContext eventContext,
                                   StatusContext statusContext) {
  library.filter = filterCallback;
  library.event = eventCallback;
  library.status = statusCallback;
  library.filterContext = filterContext;
  library.eventContext = eventContext;
  library.statusContext = statusContext;
  return library.startResult;
}
int32_t QRN_EXPORT QRNStopService(void) {
  library.stops++;
  return library.serving ? 1 : 0;  // as for one that waits
}
int32_t QRN_EXPORT QRNSendData(EventHeader* request, const void* data, int32_t length) {
  const bool known = length > 0 && strcmp(request->uid, "uid-1") == 0;
  strcpy(request->uid, "another");
  if (known) {
    library.sent.emplace_back(static_cast<const char*>(data), static_cast<std::size_t>(length));
  }
  return known ? 1 : 0;
}
int32_t QRN_EXPORT QRNGetPCName(char* buffer, int32_t* length) {
  const auto size = static_cast<int32_t>(library.name.size());
  const bool fits = buffer == nullptr || *length >= size;
  *length = size;
  if (!library.serving || !fits) {
    return library.serving ? QRN_BUFFER_TOO_SMALL : 0;
  }
  if (buffer != nullptr) {
    memcpy(buffer, library.name.data(), library.name.size());
  }
  return 1;
}
int32_t QRN_EXPORT QRNSetPCName(const char* name, int32_t length) {
  library.name.assign(name, static_cast<std::size_t>(length));
  return 1;
}

namespace {

using namespace zvqrn;

int32_t Deliver(const EventHeader& header, int32_t kind, const void* data, int32_t size) {
  EventHeader own = header;
  return library.event(&own, kind, data, size, library.eventContext);
}

TEST(Wrapper, HandsRequestsOver) {
  library = {};
  std::vector<Request> requests;
  std::vector<std::string> texts;
  Callbacks callbacks;
  callbacks.onRequest = [&](const Request& request) {
    requests.push_back(request);
    for (const std::string_view text : {request.uid, request.protocolVersion, request.driverName,
                                        request.productName, request.ipAddress}) {
      texts.emplace_back(text);
    }
    return Answer::PmNotInstall;
  };
  Service service(callbacks);
  ASSERT_EQ(service.Start(), StartResult::Serving);

  // Each text fills its field; the driver's name of version 1 runs on into the next one.
  const std::string driver(33, 'd'), product(31, 'p'), address(31, 'a');
  const EventHeader first{EXCHANGE_SINGLE, SUBEVENT_NONE, "uid-1", "1.00", ""};
  alignas(PushScanRequestRecord) char bytes[136] = {};
  PushScanRequestRecord settings{};
  strcpy(settings.ipAddress, address.c_str());
  settings.imageFormat = QRN_IMAGE_JPEG;
  settings.colorType = QRN_COLOR_MONOCHROME;
  settings.loadPaper = QRN_LOAD_DOUBLE;
  settings.paperType = QRN_PAPER_LEGAL;
  settings.paperWidth = 1;
  settings.paperHeight = 2;
  settings.scanX = 3;
  settings.scanY = 999999999;
  memcpy(bytes, &settings, sizeof settings);
  strcpy(bytes, driver.c_str());
  EXPECT_EQ(Deliver(first, DOCUMENT_PUSHSCAN_V1, bytes, 136), QRN_RESPONSE_PM_NOT_INSTALL);

  const EventHeader second{EXCHANGE_PAIRED, SUBEVENT_START, "nineteen-bytes-long", "2.00", ""};
  PushScanIdRecord id{};
  strcpy(id.productName, product.c_str());
  strcpy(id.driverName, driver.c_str());
  strcpy(id.ipAddress, address.c_str());
  id.pushScanId = 3;
  Deliver(second, DOCUMENT_PUSHSCAN_V2, &id, sizeof id);

  EXPECT_EQ(texts,
            (std::vector<std::string>{"uid-1", "1.00", driver, "", address, "nineteen-bytes-long",
                                      "2.00", driver, product, address}));
  ASSERT_TRUE(requests[0].settings);
  const Settings& got = *requests[0].settings;
  EXPECT_EQ(requests[0].exchange, Exchange::Single);
  EXPECT_EQ(got.imageFormat, ImageFormat::Jpeg);
  EXPECT_EQ(got.colorType, ColorType::Monochrome);
  EXPECT_EQ(got.loadPaper, LoadPaper::Double);
  EXPECT_EQ(got.paperType, PaperType::Legal);
  EXPECT_EQ(std::vector({got.paperWidth, got.paperHeight, got.scanX, got.scanY}),
            std::vector({1, 2, 3, 999999999}));
  EXPECT_EQ(requests[1].exchange, Exchange::Start);
  EXPECT_FALSE(requests[1].settings);
  EXPECT_EQ(requests[1].pushScanId, 3);

  // A kept id sends more than once, whatever the library writes into a header.
  for (const bool expected : {true, true}) {
    EXPECT_EQ(requests[0].id.Send("a\0b"), expected);
  }
  EXPECT_FALSE(requests[0].id.Send(""));
  EXPECT_FALSE(requests[1].id.Send("unknown", 7));
  EXPECT_EQ(library.sent, (std::vector<std::string>{"a", "a"}));
}

TEST(Wrapper, LetsNoExceptionIntoTheLibrary) {
  library = {};
  std::string told;
  Callbacks callbacks;
  callbacks.acceptScanner = [](const Scanner& scanner) -> bool {
    return scanner.tagList == "tags" ? true : throw std::runtime_error("scanner");
  };
  callbacks.onRequest = [](const Request&) -> Answer { throw 7; };
  callbacks.onStatus = [](StatusCode code, std::string_view message) {
    throw std::runtime_error(std::to_string(static_cast<int>(code)) + std::string(message));
  };
  callbacks.onException = [&told] {
    try {
      throw;
    } catch (const std::exception& exception) {
      told += exception.what();
    } catch (...) {
      told += "?";
      throw;
    }
  };
  Service service(callbacks);
  service.Start();
  const PeerDescription wanted{"driver", "type", "scope", "tags"}, unwanted{"d", "t", "s", ""};
  EXPECT_EQ(library.filter(&wanted, library.filterContext), 1);
  EXPECT_EQ(library.filter(&unwanted, library.filterContext), 0);
  const PushScanIdRecord id{};
  EXPECT_EQ(Deliver({}, DOCUMENT_PUSHSCAN_V2, &id, sizeof id), QRN_RESPONSE_ERROR);
  library.status(QRN_STATUS_CLASS_NOTICE, QRN_STATUS_RESTART, "!", library.statusContext);
  EXPECT_EQ(told, "scanner?770!");

  // What is empty is not called.
  service.Stop();
  Service bare(Callbacks{});
  bare.Start();
  EXPECT_EQ(library.filter(&unwanted, library.filterContext), 1);
  EXPECT_EQ(Deliver({}, DOCUMENT_PUSHSCAN_V2, &id, sizeof id), QRN_RESPONSE_ERROR);
  EXPECT_EQ(library.status(QRN_STATUS_CLASS_NOTICE, QRN_STATUS_RESTART, "", library.statusContext),
            0);
}

TEST(Wrapper, StopsWhatItHasStarted) {
  library = {};
  {
    Service running(Callbacks{});
    EXPECT_EQ(running.Start(), StartResult::Serving);
    EXPECT_EQ(running.Start(), StartResult::Failed);
    library.startResult = 0;
    Service second(Callbacks{});
    EXPECT_EQ(second.Start(), StartResult::Failed);
    EXPECT_TRUE(second.Stop());
    EXPECT_EQ(library.stops, 0);
  }
  EXPECT_EQ(library.stops, 1);

  library.startResult = 1;
  library.serving = false;
  {
    Service waiting(Callbacks{});
    EXPECT_EQ(waiting.Start(), StartResult::Waiting);
    EXPECT_EQ(Service::PcName(), "");
    EXPECT_TRUE(waiting.Stop());
    EXPECT_EQ(library.stops, 2);
  }
  EXPECT_EQ(library.stops, 2);

  // Inside a callback it would wait for itself.
  library = {};
  bool stopped = true;
  Service* inside = nullptr;
  Callbacks callbacks;
  callbacks.onRequest = [&](const Request&) {
    stopped = inside->Stop();
    return Answer::Ok;
  };
  Service service(callbacks);
  inside = &service;
  service.Start();
  const PushScanIdRecord id{};
  EXPECT_EQ(Deliver({}, DOCUMENT_PUSHSCAN_V2, &id, sizeof id), QRN_RESPONSE_OK);
  EXPECT_FALSE(stopped);
  EXPECT_EQ(library.stops, 0);
}

TEST(Wrapper, GivesAndTakesNames) {
  library = {};
  EXPECT_EQ(Service::PcName(), "COMPUTER");
  library.name = std::string(40, 'L');  // as long as the library likes
  EXPECT_EQ(Service::PcName(), library.name);
  EXPECT_TRUE(Service::SetPcName(std::string_view("FIFTEEN-LETTERS-and more", 15)));
  EXPECT_FALSE(Service::SetPcName("SIXTEEN-LETTERS-"));
  EXPECT_EQ(library.name, "FIFTEEN-LETTERS");
}

}  // namespace
