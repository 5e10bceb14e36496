// HTTP and HTTPS: success is an answer with a wanted status. Every probe makes a connection of its
// own; nothing of the environment (proxies) takes part, redirections are answers like others. The
// status is known when the final headers are in: the transfer ends there, and no body is read.
#include "tools/qmond/kinds/http.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

#include "tools/qmond/kinds/host.h"
#include "tools/qmond/sockets.h"

namespace ot::qmond {
namespace {

// Reading the file of trusted authorities takes longer than a probe. curl keeps what it has read
// only where no folder of them is named as well.
constexpr long authorities_kept_s = 60;

struct result_row {
  CURLcode result;
  return_code code;
};

// All that comes before the body, interim answers and their headers included; curl would go on
// reading interim answers for as long as they come.
constexpr std::size_t headers_max = std::size_t{256} * 1024;

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
      curl_->easy_cleanup(handle_);
    }
    if (connect_to_ != nullptr) {
      curl_->slist_free_all(connect_to_);
    }
  }

  bool start(const address& where) {
    curl_ = client_.ready();
    if (curl_ == nullptr) {
      return false;
    }
    handle_ = curl_->easy_init();
    const bool v6 = where.family() == AF_INET6;
    const std::string route =
        "::" + (v6 ? '[' + where.text() + ']' : where.text()) + ':' + std::to_string(what_.port);
    connect_to_ = curl_->slist_append(nullptr, route.c_str());
    return handle_ != nullptr && connect_to_ != nullptr && set_up() &&
           client_.add(handle_, &on_done_);
  }

 private:
  template <typename value_type>
  bool set(CURLoption option, value_type value) noexcept {
    return curl_->easy_setopt(handle_, option, value) == CURLE_OK;
  }

  bool set_up() noexcept {
    const long check = what_.verify ? 1 : 0;
    return set(CURLOPT_URL, what_.target.c_str()) && set(CURLOPT_PROTOCOLS_STR, "http,https") &&
           set(CURLOPT_CONNECT_TO, connect_to_) && set(CURLOPT_PROXY, "") &&
           set(CURLOPT_USERAGENT, "qmond") && set(CURLOPT_NOSIGNAL, 1L) &&
           set(CURLOPT_FRESH_CONNECT, 1L) && set(CURLOPT_FORBID_REUSE, 1L) &&
           set(CURLOPT_SSL_VERIFYPEER, check) && set(CURLOPT_SSL_VERIFYHOST, 2 * check) &&
           set(CURLOPT_CAPATH, nullptr) && set(CURLOPT_CA_CACHE_TIMEOUT, authorities_kept_s) &&
           set(CURLOPT_HEADERFUNCTION, &http_probe::take_header) && set(CURLOPT_HEADERDATA, this) &&
           set(CURLOPT_WRITEFUNCTION, &http_probe::refuse_body) &&
           set(CURLOPT_OPENSOCKETFUNCTION, &http_probe::open_socket) &&
           set(CURLOPT_OPENSOCKETDATA, this);
  }

  // One line at a time, the last of an answer is empty. Taking less than came ends the transfer.
  static std::size_t take_header(char* data, std::size_t size, std::size_t count, void* context) {
    auto* const self = static_cast<http_probe*>(context);
    const std::string_view line(data, size * count);
    self->header_bytes_ += line.size();
    if (line == "\r\n" || line == "\n") {
      long status = 0;
      self->curl_->easy_getinfo(self->handle_, CURLINFO_RESPONSE_CODE, &status);
      constexpr long switching_protocols =
          101;  // the only one below 200 that is not followed by more
      self->status_ = status >= 200 || status == switching_protocols ? status : 0;
    }
    return self->status_ != 0 || self->header_bytes_ > headers_max ? 0 : line.size();
  }

  static std::size_t refuse_body(char* /*data*/, std::size_t /*size*/, std::size_t /*count*/,
                                 void* /*context*/) {
    return 0;
  }

  static curl_socket_t open_socket(void* context, curlsocktype /*purpose*/, curl_sockaddr* where) {
    auto* const self = static_cast<http_probe*>(context);
    unique_fd made(socket(where->family, where->socktype | SOCK_CLOEXEC, where->protocol));
    self->socket_error_ =
        made.valid() ? bind_to_operation(made.get(), where->family, self->what_) : errno;
    return self->socket_error_ == 0 ? made.release() : CURL_SOCKET_BAD;
  }

  [[nodiscard]] bool status_wanted() const noexcept {
    const auto& wanted = what_.status;
    return wanted.empty() ? status_ >= 200 && status_ < 400
                          : std::find(wanted.begin(), wanted.end(), status_) != wanted.end();
  }

  // curl has no memory for a header that is longer than it likes.
  [[nodiscard]] bool has_begun() const noexcept {
    curl_off_t first_byte_us = 0;
    return curl_->easy_getinfo(handle_, CURLINFO_STARTTRANSFER_TIME_T, &first_byte_us) ==
               CURLE_OK &&
           first_byte_us > 0;
  }

  [[nodiscard]] return_code code_of(CURLcode result) const noexcept {
    if (status_ != 0) {
      return status_wanted() ? return_code::ok : return_code::bad_answer;
    }
    if (socket_error_ != 0) {
      return code_of_errno(socket_error_);
    }
    if (result == CURLE_COULDNT_CONNECT) {
      long error = 0;
      curl_->easy_getinfo(handle_, CURLINFO_OS_ERRNO, &error);
      return code_of_errno(static_cast<int>(error));
    }
    if (result == CURLE_OUT_OF_MEMORY && has_begun()) {
      return return_code::bad_answer;
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
  const curl_functions* curl_ = nullptr;
  CURL* handle_ = nullptr;
  curl_slist* connect_to_ = nullptr;
  int socket_error_ = 0;
  std::size_t header_bytes_ = 0;
  long status_ = 0;  // of the final answer; 0: not here yet
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
    read_elements(*list, [&codes](const toml::node& element) {
      codes.push_back(number_value(element, 100, 599));
    });
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

}  // namespace ot::qmond
