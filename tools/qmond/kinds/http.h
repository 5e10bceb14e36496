// HTTP transfers of all operations on one loop: curl's multi interface, driven by its sockets and
// its timer.
#pragma once

#include <systemd/sd-event.h>

#include <functional>
#include <map>
#include <memory>

#include "tools/daemon/loop.h"
#include "tools/qmond/kinds/curl.h"

namespace ot::qmond {

// Called from the loop with the result of the transfer; the handle may be removed in it.
using transfer_done = std::function<void(CURLcode result)>;

class http_client {
 public:
  explicit http_client(sd_event* loop) noexcept : loop_(loop) {}
  ~http_client();
  http_client(const http_client&) = delete;
  http_client& operator=(const http_client&) = delete;

  // The library's functions once it is loaded, here for the first transfer; null when it cannot be.
  // May throw system_error.
  const curl_functions* ready();

  // Of a client that is ready. `call` must stay where it is until the handle is removed. False when
  // curl refuses.
  bool add(CURL* handle, transfer_done* call);
  void remove(CURL* handle) noexcept;

 private:
  static int on_socket(CURL* handle, curl_socket_t socket, int what, void* client, void* known);
  static int on_timer(CURLM* multi, long timeout_ms, void* client);
  // False when the loop has no room for it.
  bool watch(curl_socket_t socket, std::uint32_t events) noexcept;
  void act(curl_socket_t socket, int events);

  sd_event* loop_;
  const curl_functions* curl_ = nullptr;
  CURLM* multi_ = nullptr;
  std::map<curl_socket_t, loop_source> sockets_;
  loop_source timer_;
};

}  // namespace ot::qmond
