// The header for C++ can be read by itself, and twice; its templates and inline functions are used.
#include <zvqrn/zvqrn.hpp>
// Once more.
#include <zvqrn/zvqrn.hpp>

int Use();
int Use() {
  zvqrn::Callbacks callbacks;
  callbacks.acceptScanner = [](const zvqrn::Scanner& scanner) { return !scanner.tagList.empty(); };
  callbacks.onRequest = [](const zvqrn::Request& request) {
    return request.id.Send("data") ? zvqrn::Answer::Ok : zvqrn::Answer::Busy;
  };
  zvqrn::Service service(callbacks);
  const bool running = service.Start() != zvqrn::StartResult::Failed;
  return running && zvqrn::Service::SetPcName(zvqrn::Service::PcName()) && service.Stop() ? 0 : 1;
}
