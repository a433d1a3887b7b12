// A host program: its callbacks, and the library as it loads it or is linked with it.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "host/service_library.h"
#include "zvqrn/zvqrn.h"

namespace zvqrn::test {

// One request as ScanEventCallback got it.
struct Delivery {
  EventHeader header;
  std::int32_t kind;
  std::string data;
};

// A value that the test writes and callbacks read, on other threads.
template <typename Type>
class Guarded {
 public:
  Guarded& operator=(Type value) {
    const std::lock_guard<std::mutex> guard(mutex_);
    value_ = std::move(value);
    return *this;
  }
  Type Get() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return value_;
  }

 private:
  mutable std::mutex mutex_;
  Type value_;
};

class Host {
 public:
  // Uses functions that are linked into the test, or loads the library at `path`.
  explicit Host(const host::ServiceLibrary& linked) : library(linked) {}
  explicit Host(const std::string& path);
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  std::int32_t Start();
  std::int32_t Stop() { return library.stopService(); }
  // Stops using the library without stopping the service.
  void Unload();

  // Waits until that many requests have been delivered; false when they do not come in time.
  bool WaitForDeliveries(std::size_t count);
  std::vector<Delivery> Deliveries();

  host::ServiceLibrary library;
  // What the callbacks do; by default every request is answered 1.
  Guarded<std::function<std::int32_t(EventHeader*)>> verdict;
  Guarded<std::function<std::int32_t(const PeerDescription*)>> filter;
  Guarded<std::function<void()>> onStatus;
  // The status messages so far, their texts one a line.
  std::string StatusTexts();

 private:
  // The library hands each callback a value of its own; the test fails when it is another's.
  enum Callback { FILTER, EVENT, STATUS };
  struct Context {
    Host* host;
    Callback callback;
  };
  static Host* HostOf(void* context, Callback callback);

  static std::int32_t QRN_CALLBACK OnFilter(const PeerDescription* peer, void* context);
  static std::int32_t QRN_CALLBACK OnEvent(EventHeader* header, std::int32_t kind, const void* data,
                                           std::int32_t size, void* context);
  static std::int32_t QRN_CALLBACK OnStatus(std::int32_t statusClass, std::int32_t statusCode,
                                            const char* message, void* context);

  Context contexts_[3] = {{this, FILTER}, {this, EVENT}, {this, STATUS}};
  std::mutex mutex_;
  std::vector<Delivery> deliveries_;
  std::string statusTexts_;
};

// The library beside the test programs, with the utility stand-in beside it; and the same library
// in a folder of its own, where it finds no utility library.
std::string LibraryPath();
std::string LonelyLibraryPath();

}  // namespace zvqrn::test
