// curl's multi interface on our loop. It says which of its sockets to watch and when to call it
// next; a socket's source ends when curl says so, which is before it closes the socket.
#include "tools/qmond/kinds/http.h"

#include <sys/epoll.h>

#include <system_error>

#include "tools/qmond/sockets.h"

namespace ot::qmond {

const curl_functions* http_client::ready() {
  if (multi_ != nullptr) {
    return curl_;
  }
  curl_ = load_curl();
  if (curl_ == nullptr) {
    return nullptr;
  }
  timer_ = loop_source::timer(loop_, UINT64_MAX, 1000,
                              [this](std::uint32_t) { act(CURL_SOCKET_TIMEOUT, 0); });
  multi_ = curl_->multi_init();
  if (multi_ == nullptr) {
    return nullptr;
  }
  close_on_exec();  // curl's pair of sockets to wake itself
  curl_->multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, &http_client::on_socket);
  curl_->multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
  curl_->multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, &http_client::on_timer);
  curl_->multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
  return curl_;
}

http_client::~http_client() {
  if (multi_ != nullptr) {
    curl_->multi_cleanup(multi_);
  }
}

bool http_client::add(CURL* handle, transfer_done* call) {
  return curl_->easy_setopt(handle, CURLOPT_PRIVATE, call) == CURLE_OK &&
         curl_->multi_add_handle(multi_, handle) == CURLM_OK;
}

void http_client::remove(CURL* handle) noexcept {
  curl_->multi_remove_handle(multi_, handle);
}

int http_client::on_socket(CURL* /*handle*/, curl_socket_t socket, int what, void* client,
                           void* /*known*/) {
  auto* const self = static_cast<http_client*>(client);
  if (what == CURL_POLL_REMOVE) {
    self->sockets_.erase(socket);
    return 0;
  }
  const std::uint32_t events =
      ((what & CURL_POLL_IN) != 0 ? EPOLLIN : 0U) | ((what & CURL_POLL_OUT) != 0 ? EPOLLOUT : 0U);
  if (const auto known = self->sockets_.find(socket); known != self->sockets_.end()) {
    known->second.set_events(events);
    return 0;
  }
  return self->watch(socket, events) ? 0 : -1;
}

bool http_client::watch(curl_socket_t socket, std::uint32_t events) noexcept {
  try {
    sockets_[socket] =
        loop_source::descriptor(loop_, socket, events, [this, socket](std::uint32_t came) {
          act(socket, ((came & EPOLLIN) != 0 ? CURL_CSELECT_IN : 0) |
                          ((came & EPOLLOUT) != 0 ? CURL_CSELECT_OUT : 0) |
                          ((came & (EPOLLERR | EPOLLHUP)) != 0 ? CURL_CSELECT_ERR : 0));
        });
    return true;
  } catch (const std::system_error&) {
    sockets_.erase(socket);
    return false;
  }
}

int http_client::on_timer(CURLM* /*multi*/, long timeout_ms, void* client) {
  auto* const self = static_cast<http_client*>(client);
  self->timer_.set_time(
      timeout_ms < 0 ? UINT64_MAX : monotonic_us() + static_cast<std::uint64_t>(timeout_ms) * 1000);
  return 0;
}

void http_client::act(curl_socket_t socket, int events) {
  int running = 0;
  curl_->multi_socket_action(multi_, socket, events, &running);
  int left = 0;
  while (const CURLMsg* const message = curl_->multi_info_read(multi_, &left)) {
    if (message->msg == CURLMSG_DONE) {
      const CURLcode result = message->data.result;
      transfer_done* call = nullptr;
      curl_->easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &call);
      (*call)(result);
    }
  }
}

}  // namespace ot::qmond
