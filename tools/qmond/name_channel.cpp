// c-ares on our loop. It reads the system's configuration when a channel is made and never again,
// and has one pace for all questions of a channel: hence a channel for each timeout, and a new one
// when the configuration has changed.
#include "tools/qmond/name_channel.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/time.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

namespace ot::qmond {
namespace {

void check(int status) {
  if (status != ARES_SUCCESS) {
    throw std::runtime_error(std::string("name resolution: ") + ares_strerror(status));
  }
}

std::uint32_t servers_of_system() {
  cares_channel channel = nullptr;
  ares_options none{};
  check(ares_init_options(&channel, &none, 0));
  const std::uint32_t count = count_servers(channel);
  ares_destroy(channel);
  return count;
}

}  // namespace

struct name_channel::question {
  name_channel& channel;
  std::uint16_t port;
  name_found call;
};

name_channel::name_channel(sd_event* loop, std::uint32_t timeout_ms) : loop_(loop) {
  timer_ = loop_source::timer(loop_, UINT64_MAX, 1000, [this](std::uint32_t) { give_up_late(); });
  const std::uint32_t servers = servers_of_system();
  const std::uint32_t try_ms = std::max(timeout_ms / (servers + 1), std::uint32_t{1});
  // Where there is no other one, all the time is a server's; the caller may have had its rounded.
  open(try_ms, 2 * (servers > 1 ? try_ms : timeout_ms));
}

name_channel::~name_channel() {
  ares_destroy(channel_);
}

void name_channel::open(std::uint32_t try_ms, std::uint32_t longest_ms) {
  ares_options options{};
  options.sock_state_cb_data = this;
  options.sock_state_cb = [](void* context, ares_socket_t socket, int readable, int writable) {
    static_cast<name_channel*>(context)->watch(socket, readable != 0, writable != 0);
  };
  const int mask = ARES_OPT_SOCK_STATE_CB | set_pace(options, try_ms, longest_ms);
  check(ares_init_options(&channel_, &options, mask));
}

void name_channel::on_answer(void* context, int status, int /*timeouts*/, ares_addrinfo* result) {
  const std::unique_ptr<question> asked(static_cast<question*>(context));
  address found;
  if (status == ARES_SUCCESS && result != nullptr && result->nodes != nullptr) {
    found = address::from_socket(result->nodes->ai_addr, asked->port);
  }
  if (result != nullptr) {
    ares_freeaddrinfo(result);
  }
  asked->call(found);
  --asked->channel.under_way_;
}

// Asked for both families at once, c-ares would wait for both answers, and some servers never
// answer for one of them. So they are two questions: an IPv4 address is taken when it is there, an
// IPv6 one when there is none.
void name_channel::ask(const std::string& name, int family, std::uint16_t port, name_found call) {
  if (family != AF_UNSPEC) {
    ask_family(name, family, port, std::move(call));
    return;
  }
  struct pair {
    name_found call;  // empty once called
    bool no_v4 = false;
    std::optional<address> v6;
  };
  const auto both = std::make_shared<pair>(pair{.call = std::move(call), .no_v4 = false, .v6 = {}});
  const auto settle = [both](const address& found) { std::exchange(both->call, nullptr)(found); };
  ask_family(name, AF_INET, port, [both, settle](const address& found) {
    both->no_v4 = !found.set();
    if (found.set() || both->v6) {
      settle(found.set() ? found : *both->v6);
    }
  });
  if (both->call) {
    ask_family(name, AF_INET6, port, [both, settle](const address& found) {
      both->v6 = found;
      if (both->no_v4 && both->call) {
        settle(found);
      }
    });
  }
}

void name_channel::ask_family(const std::string& name, int family, std::uint16_t port,
                              name_found call) {
  ares_addrinfo_hints hints{};
  hints.ai_family = family;
  hints.ai_flags = ARES_AI_NOSORT;
  auto asked =
      std::make_unique<question>(question{.channel = *this, .port = port, .call = std::move(call)});
  ++under_way_;
  ares_getaddrinfo(channel_, name.c_str(), nullptr, &hints, on_answer, asked.release());
  set_timer();
}

void name_channel::watch(ares_socket_t socket, bool readable, bool writable) {
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
void name_channel::add_socket(ares_socket_t socket, std::uint32_t events) noexcept {
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

void name_channel::process(ares_socket_t readable, ares_socket_t writable) {
  ares_process_fd(channel_, readable, writable);
  set_timer();
}

// What came while nobody could look is read before anything counts as late.
void name_channel::give_up_late() {
  std::vector<pollfd> read;
  for (const auto& [socket, source] : sockets_) {
    read.push_back({.fd = socket, .events = POLLIN, .revents = 0});
  }
  poll(read.data(), read.size(), 0);
  for (const pollfd& one : read) {
    if (one.revents != 0 && sockets_.contains(one.fd)) {
      ares_process_fd(channel_, one.fd, ARES_SOCKET_BAD);
    }
  }
  process(ARES_SOCKET_BAD, ARES_SOCKET_BAD);
}

void name_channel::set_timer() {
  timeval wait{};
  const timeval* const next = ares_timeout(channel_, nullptr, &wait);
  timer_.set_time(next == nullptr
                      ? UINT64_MAX
                      : monotonic_us() + static_cast<std::uint64_t>(next->tv_sec) * 1000000 +
                            static_cast<std::uint64_t>(next->tv_usec));
}

}  // namespace ot::qmond
