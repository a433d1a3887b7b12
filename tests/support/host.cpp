#include "support/host.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "common/module_loader.h"
#include "support/patience.h"

// A process that ends while the service runs leaves threads that nobody joins, and the thread
// sanitiser takes those that have just finished for a leak.  Nor may it delay that end by a second.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
  return "report_thread_leaks=0:atexit_sleep_ms=0";
}

namespace zvqrn::test {

Host::Host(const std::string& path) {
  std::string why;
  EXPECT_TRUE(host::LoadServiceLibrary(path, &library, &why)) << why;
}

Host::~Host() {
  Unload();
}

void Host::Unload() {
  if (library.module != nullptr) {
    host::UnloadServiceLibrary(&library);
  }
}

std::int32_t Host::Start() {
  return library.startService(&OnFilter, &OnEvent, &OnStatus, &contexts_[FILTER], &contexts_[EVENT],
                              &contexts_[STATUS]);
}

bool Host::WaitForDeliveries(std::size_t count) {
  return Eventually([&] { return Deliveries().size() >= count; });
}

std::vector<Delivery> Host::Deliveries() {
  const std::lock_guard<std::mutex> guard(mutex_);
  return deliveries_;
}

std::string Host::StatusTexts() {
  const std::lock_guard<std::mutex> guard(mutex_);
  return statusTexts_;
}

Host* Host::HostOf(void* context, Callback callback) {
  const auto* own = static_cast<Context*>(context);
  EXPECT_EQ(own->callback, callback);
  return own->host;
}

std::int32_t Host::OnFilter(const PeerDescription* peer, void* context) {
  Host* self = HostOf(context, FILTER);
  const auto filter = self->filter.Get();
  return filter ? filter(peer) : 1;
}

std::int32_t Host::OnEvent(EventHeader* header, std::int32_t kind, const void* data,
                           std::int32_t size, void* context) {
  Host* self = HostOf(context, EVENT);
  {
    const std::lock_guard<std::mutex> guard(self->mutex_);
    self->deliveries_.push_back(
        Delivery{*header, kind,
                 std::string(static_cast<const char*>(data), static_cast<std::size_t>(size))});
  }
  const auto verdict = self->verdict.Get();
  return verdict ? verdict(header) : QRN_RESPONSE_OK;
}

std::int32_t Host::OnStatus(std::int32_t statusClass, std::int32_t statusCode, const char* message,
                            void* context) {
  Host* self = HostOf(context, STATUS);
  if (const auto onStatus = self->onStatus.Get()) {
    onStatus();
  }
  const std::lock_guard<std::mutex> guard(self->mutex_);
  self->statusTexts_ +=
      std::to_string(statusClass) + " " + std::to_string(statusCode) + " " + message + "\n";
  return 0;
}

std::string LibraryPath() {
  return tools::ProgramFolder() + "/" + tools::SERVICE_LIBRARY_FILE;
}

std::string LonelyLibraryPath() {
  const std::filesystem::path folder = std::filesystem::path(tools::ProgramFolder()) / "lonely";
  std::filesystem::create_directories(folder);
  const std::filesystem::path path = folder / tools::SERVICE_LIBRARY_FILE;
  std::filesystem::remove(path);  // MinGW's copy does not overwrite
  std::filesystem::copy_file(LibraryPath(), path);
  return path.string();
}

}  // namespace zvqrn::test
