// c-ares on our loop. A single query of it cannot be given up, so each has a state of its own that
// outlives whoever asked.
#include "tools/qmond/resolver.h"

#include <strings.h>
#include <sys/epoll.h>
#include <sys/time.h>

#include <stdexcept>
#include <string_view>
#include <system_error>

namespace ot::qmond {

struct name_query::state {
  std::uint16_t port;
  name_found call;  // empty once given up, or while look_up runs
  bool answered = false;
  address answer;
};

namespace {

constexpr int query_timeout_ms = 2000;
constexpr int query_tries = 2;

void on_answer(void* context, int status, int /*timeouts*/, ares_addrinfo* result) {
  const std::unique_ptr<std::shared_ptr<name_query::state>> holder(
      static_cast<std::shared_ptr<name_query::state>*>(context));
  name_query::state& query = **holder;
  if (status == ARES_SUCCESS && result != nullptr && result->nodes != nullptr) {
    query.answer = address::from_socket(result->nodes->ai_addr, query.port);
  }
  if (result != nullptr) {
    ares_freeaddrinfo(result);
  }
  query.answered = true;
  if (query.call) {
    const name_found call = std::move(query.call);
    call(query.answer);
  }
}

// These names need no file and no server (RFC 6761), and a small system may have neither.
bool is_loopback_name(const std::string& name) {
  constexpr std::string_view loopback = "localhost";
  constexpr std::string_view below = ".localhost";
  const auto ends = [&name](std::string_view end) {
    return name.size() >= end.size() &&
           strcasecmp(name.c_str() + (name.size() - end.size()), end.data()) == 0;
  };
  return (name.size() == loopback.size() && ends(loopback)) || ends(below);
}

}  // namespace

name_query::~name_query() {
  state_->call = nullptr;
}

bool name_query::answered() const noexcept {
  return state_->answered;
}

const address& name_query::answer() const noexcept {
  return state_->answer;
}

resolver::resolver(sd_event* loop) : loop_(loop) {
  ares_options options{};
  options.timeout = query_timeout_ms;
  options.tries = query_tries;
  options.sock_state_cb_data = this;
  options.sock_state_cb = [](void* context, ares_socket_t socket, int readable, int writable) {
    static_cast<resolver*>(context)->watch(socket, readable != 0, writable != 0);
  };
  const int mask = ARES_OPT_TIMEOUTMS | ARES_OPT_TRIES | ARES_OPT_SOCK_STATE_CB;
  if (const int status = ares_library_init(ARES_LIB_INIT_ALL); status != ARES_SUCCESS) {
    throw std::runtime_error(std::string("name resolution: ") + ares_strerror(status));
  }
  if (const int status = ares_init_options(&channel_, &options, mask); status != ARES_SUCCESS) {
    throw std::runtime_error(std::string("name resolution: ") + ares_strerror(status));
  }
  timer_ = loop_source::timer(loop_, UINT64_MAX, 1000,
                              [this](std::uint32_t) { process(ARES_SOCKET_BAD, ARES_SOCKET_BAD); });
}

resolver::~resolver() {
  ares_destroy(channel_);
  ares_library_cleanup();
}

void resolver::watch(ares_socket_t socket, bool readable, bool writable) {
  const std::uint32_t events = (readable ? EPOLLIN : 0U) | (writable ? EPOLLOUT : 0U);
  const auto known = sockets_.find(socket);
  if (events == 0) {
    sockets_.erase(socket);
  } else if (known != sockets_.end()) {
    known->second.set_events(events);
  } else {
    add_socket(socket, events);
  }
}

// Where the loop has no room, the query runs into its timeout.
void resolver::add_socket(ares_socket_t socket, std::uint32_t events) noexcept {
  try {
    sockets_[socket] =
        loop_source::descriptor(loop_, socket, events, [this, socket](std::uint32_t came) {
          const bool can_write = (came & EPOLLOUT) != 0;
          const bool can_read = (came & ~std::uint32_t{EPOLLOUT}) != 0;
          process(can_read ? socket : ARES_SOCKET_BAD, can_write ? socket : ARES_SOCKET_BAD);
        });
  } catch (const std::system_error&) {
    sockets_.erase(socket);
  }
}

void resolver::process(ares_socket_t readable, ares_socket_t writable) {
  ares_process_fd(channel_, readable, writable);
  set_timer();
}

void resolver::set_timer() {
  timeval wait{};
  const timeval* const next = ares_timeout(channel_, nullptr, &wait);
  timer_.set_time(next == nullptr
                      ? UINT64_MAX
                      : monotonic_us() + static_cast<std::uint64_t>(next->tv_sec) * 1000000 +
                            static_cast<std::uint64_t>(next->tv_usec));
}

std::unique_ptr<name_query> resolver::look_up(const std::string& name, int family,
                                              std::uint16_t port, name_found call) {
  const auto shared = std::make_shared<name_query::state>();
  shared->port = port;
  if (is_loopback_name(name)) {
    shared->answer = address::from_text(family == AF_INET6 ? "::1" : "127.0.0.1", port);
    shared->answered = true;
    return std::make_unique<name_query>(shared);
  }
  ares_addrinfo_hints hints{};
  hints.ai_family = family;
  hints.ai_flags = ARES_AI_NOSORT;
  ares_getaddrinfo(channel_, name.c_str(), nullptr, &hints, on_answer,
                   new std::shared_ptr<name_query::state>(shared));
  if (!shared->answered) {
    shared->call = std::move(call);
  }
  set_timer();
  return std::make_unique<name_query>(shared);
}

}  // namespace ot::qmond
