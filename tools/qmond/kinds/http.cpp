// HTTP and HTTPS: success is an answer with a wanted status. Every probe makes a connection of its
// own; nothing of the environment (proxies) takes part, redirections are answers like others. All
// transfers run on curl's multi interface, which is driven by our loop.
#include "tools/qmond/kinds/http.h"

#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <system_error>

#include "tools/qmond/kinds/host.h"
#include "tools/qmond/sockets.h"

namespace ot::qmond {
namespace {

struct result_row {
  CURLcode result;
  return_code code;
};

// Of a transfer without an answer; all others brought one that is no good.
constexpr result_row results[] = {
    {CURLE_OPERATION_TIMEDOUT, return_code::no_answer},
    {CURLE_COULDNT_RESOLVE_HOST, return_code::name_not_resolved},
    {CURLE_OUT_OF_MEMORY, return_code::cannot_run},
    {CURLE_FAILED_INIT, return_code::cannot_run},
    {CURLE_ABORTED_BY_CALLBACK, return_code::cannot_run},
    {CURLE_SSL_CACERT_BADFILE, return_code::cannot_run},
};

class http_probe : public probe {
 public:
  http_probe(http_client& client, const operation& what, probe_done done)
      : client_(client),
        what_(what),
        done_(std::move(done)),
        on_done_([this](CURLcode result) { finish(result); }) {}

  ~http_probe() override {
    if (handle_ != nullptr) {
      client_.remove(handle_);
      curl_easy_cleanup(handle_);
    }
    curl_slist_free_all(connect_to_);
  }

  bool start(const address& where) {
    handle_ = curl_easy_init();
    const bool v6 = where.family() == AF_INET6;
    const std::string route =
        "::" + (v6 ? '[' + where.text() + ']' : where.text()) + ':' + std::to_string(what_.port);
    connect_to_ = curl_slist_append(nullptr, route.c_str());
    return handle_ != nullptr && connect_to_ != nullptr && set_up() &&
           client_.add(handle_, &on_done_);
  }

 private:
  template <typename value_type>
  bool set(CURLoption option, value_type value) noexcept {
    return curl_easy_setopt(handle_, option, value) == CURLE_OK;
  }

  bool set_up() noexcept {
    const long check = what_.verify ? 1 : 0;
    return set(CURLOPT_URL, what_.target.c_str()) && set(CURLOPT_PROTOCOLS_STR, "http,https") &&
           set(CURLOPT_CONNECT_TO, connect_to_) && set(CURLOPT_PROXY, "") &&
           set(CURLOPT_USERAGENT, "qmond") && set(CURLOPT_NOSIGNAL, 1L) &&
           set(CURLOPT_FRESH_CONNECT, 1L) && set(CURLOPT_FORBID_REUSE, 1L) &&
           set(CURLOPT_SSL_VERIFYPEER, check) && set(CURLOPT_SSL_VERIFYHOST, 2 * check) &&
           set(CURLOPT_WRITEFUNCTION, &http_probe::discard) &&
           set(CURLOPT_SOCKOPTFUNCTION, &http_probe::bind_socket) && set(CURLOPT_SOCKOPTDATA, this);
  }

  static std::size_t discard(char* /*data*/, std::size_t size, std::size_t count,
                             void* /*context*/) {
    return size * count;
  }

  static int bind_socket(void* context, curl_socket_t socket, curlsocktype /*purpose*/) {
    auto* const self = static_cast<http_probe*>(context);
    const address source = address::from_text(self->what_.source, 0);
    const int error = bind_to_operation(socket, source.family(), self->what_);
    self->bind_error_ = error;
    return error == 0 ? CURL_SOCKOPT_OK : CURL_SOCKOPT_ERROR;
  }

  [[nodiscard]] bool status_wanted() const noexcept {
    long status = 0;
    curl_easy_getinfo(handle_, CURLINFO_RESPONSE_CODE, &status);
    const auto& wanted = what_.status;
    return wanted.empty() ? status >= 200 && status < 400
                          : std::find(wanted.begin(), wanted.end(), status) != wanted.end();
  }

  [[nodiscard]] return_code code_of(CURLcode result) const noexcept {
    if (result == CURLE_OK) {
      return status_wanted() ? return_code::ok : return_code::bad_answer;
    }
    if (bind_error_ != 0) {
      return code_of_errno(bind_error_);
    }
    if (result == CURLE_COULDNT_CONNECT) {
      long error = 0;
      curl_easy_getinfo(handle_, CURLINFO_OS_ERRNO, &error);
      return code_of_errno(static_cast<int>(error));
    }
    const auto* const row = std::find_if(std::begin(results), std::end(results),
                                         [&](const result_row& r) { return r.result == result; });
    return row == std::end(results) ? return_code::bad_answer : row->code;
  }

  void finish(CURLcode result) {
    const probe_done done = std::move(done_);
    done(code_of(result));
  }

  http_client& client_;
  const operation& what_;
  probe_done done_;
  transfer_done on_done_;
  CURL* handle_ = nullptr;
  curl_slist* connect_to_ = nullptr;
  int bind_error_ = 0;
};

started start(probe_host& host, const operation& what, const address& where, probe_done done) {
  auto made = std::make_unique<http_probe>(host.http, what, std::move(done));
  if (!made->start(where)) {
    return {.running = nullptr, .code = return_code::cannot_run};
  }
  return {.running = std::move(made), .code = return_code::none};
}

std::vector<std::uint32_t> status_value(const toml::node& node) {
  std::vector<std::uint32_t> codes;
  if (const toml::array* const list = node.as_array()) {
    for (const toml::node& element : *list) {
      codes.push_back(number_value(element, 100, 599));
    }
  } else {
    codes.push_back(number_value(node, 100, 599));
  }
  return codes;
}

constexpr std::array own_keys{
    key_row{"status", take_value<&operation::status, status_value>},
    key_row{"verify", take_value<&operation::verify, truth_value>},
};

}  // namespace

constinit const kind http_kind{
    .id = kind_id::http,
    .word = "http",
    .keys = own_keys,
    .target = [](const std::string& text) { return url_value(text); },
    .start = start,
};

http_client::http_client(sd_event* loop) : loop_(loop) {
  if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK ||
      (multi_ = curl_multi_init()) == nullptr) {
    throw std::runtime_error("curl cannot be set up");
  }
  timer_ = loop_source::timer(loop_, UINT64_MAX, 1000,
                              [this](std::uint32_t) { act(CURL_SOCKET_TIMEOUT, 0); });
  curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, &http_client::on_socket);
  curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
  curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, &http_client::on_timer);
  curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
}

http_client::~http_client() {
  curl_multi_cleanup(multi_);
  curl_global_cleanup();
}

bool http_client::add(CURL* handle, transfer_done* call) {
  return curl_easy_setopt(handle, CURLOPT_PRIVATE, call) == CURLE_OK &&
         curl_multi_add_handle(multi_, handle) == CURLM_OK;
}

void http_client::remove(CURL* handle) noexcept {
  curl_multi_remove_handle(multi_, handle);
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
  curl_multi_socket_action(multi_, socket, events, &running);
  int left = 0;
  while (const CURLMsg* const message = curl_multi_info_read(multi_, &left)) {
    if (message->msg == CURLMSG_DONE) {
      const CURLcode result = message->data.result;
      transfer_done* call = nullptr;
      curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &call);
      (*call)(result);
    }
  }
}

}  // namespace ot::qmond
