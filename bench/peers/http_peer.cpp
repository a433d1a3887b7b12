#include <microhttpd.h>

#include <stdexcept>
#include <string>

#include "peers/peers.h"

namespace zvqrn::bench {
namespace {

// What the server writes before the body: status line, Date, Content-Length, empty line.
constexpr std::size_t ANSWER_HEAD_SIZE = 77;

// Called at the request's head, for its body, and when it is whole.
MHD_Result Answer(void* response, MHD_Connection* connection, const char* /*url*/,
                  const char* /*method*/, const char* /*version*/, const char* /*body*/,
                  std::size_t* bodySize, void** request) {
  if (*request == nullptr) {
    *request = response;
    return MHD_YES;
  }
  if (*bodySize > 0) {
    *bodySize = 0;
    return MHD_YES;
  }
  return MHD_queue_response(connection, MHD_HTTP_OK, static_cast<MHD_Response*>(response));
}

}  // namespace

void StartHttpPeer(const PeerSizes& sizes) {
  std::string body(sizes.answer - ANSWER_HEAD_SIZE, 'a');
  MHD_Response* response =
      MHD_create_response_from_buffer(body.size(), body.data(), MHD_RESPMEM_MUST_COPY);
  if (response == nullptr ||
      MHD_start_daemon(MHD_USE_EPOLL_INTERNAL_THREAD, HTTP_PEER_PORT, nullptr, nullptr, &Answer,
                       response, MHD_OPTION_END) == nullptr) {
    throw std::runtime_error("libmicrohttpd does not start");
  }
}

}  // namespace zvqrn::bench
