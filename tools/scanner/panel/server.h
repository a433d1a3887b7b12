// The panel's web server: one listening socket, a thread for each connection, one request on each.
// What it serves is the panel's business; what it takes is judged by http.h.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/socket.h"
#include "platform/waker.h"
#include "scanner/panel/http.h"
#include "scanner/panel/lock.h"

namespace zvqrn::scanner {

struct HttpAnswer {
  HttpStatus status = HTTP_OK;
  std::string type = "application/json";
  std::string body;
  std::string fileName;  // under which the browser is to save it; empty: it is shown
  std::string policy;    // Content-Security-Policy; empty: nothing is allowed
};

// What is served.  Called by many threads at once; no call waits for the network.
struct HttpService {
  HttpGate gate;
  std::function<HttpAnswer(const HttpRequest& request)> answer;
  // The path of the stream of events, and what there is to tell after `*last` (which moves on), as
  // Server-Sent Events.
  std::string streamPath;
  std::function<std::string(std::uint64_t* last)> news;
};

class HttpServer {
 public:
  explicit HttpServer(HttpService service) : service_(std::move(service)) {}
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;
  ~HttpServer();

  // Listens at this address (network byte order) and port, 0 for a free one; throws a Failure.
  void Listen(std::uint32_t address, std::uint16_t port);
  std::uint16_t Port() const;
  HttpGate* Gate() { return &service_.gate; }

  // Takes the connections that come within this time.  To be called again and again by one thread.
  void Serve(std::int32_t milliseconds);

  // Tells those that follow the stream that there is news.  Any thread, with any lock.
  void TellNews();

  // Ends everything that is being served.  The caller waits for the threads.
  void End();

 private:
  struct Visit;
  static void Run(void* visit);
  void Handle(platform::SocketHandle socket);
  void SendAnswer(platform::SocketHandle socket, const HttpAnswer& answer);
  bool SendAll(platform::SocketHandle socket, const std::string& bytes);
  void Stream(platform::SocketHandle socket, const HttpRequest& request);
  void Follow(platform::SocketHandle socket, platform::Waker* waker, std::uint64_t last);

  HttpService service_;
  platform::SocketHandle listening_ = platform::NO_SOCKET;
  std::atomic<bool> ending_{false};
  std::atomic<int> visits_{0};
  Lock followersLock_;
  std::vector<platform::Waker*> followers_;
};

}  // namespace zvqrn::scanner
