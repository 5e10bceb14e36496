// Which channel a query takes. A single query of c-ares cannot be given up, so each has a state of
// its own that outlives whoever asked.
#include "tools/qmond/resolver.h"

#include <strings.h>

#include <bit>
#include <stdexcept>
#include <string_view>

namespace ot::qmond {

struct name_query::state {
  name_found call;  // empty once given up, or while look_up runs
  bool answered = false;
  address answer;
};

namespace {

constexpr const char* servers_path = "/etc/resolv.conf";

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

bool same_file(const struct stat& a, const struct stat& b) noexcept {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
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
  if (const int status = ares_library_init(ARES_LIB_INIT_ALL); status != ARES_SUCCESS) {
    throw std::runtime_error(std::string("name resolution: ") + ares_strerror(status));
  }
}

resolver::~resolver() {
  channels_.clear();
  retired_.clear();
  ares_library_cleanup();
}

void resolver::refresh() noexcept {
  servers_file_.reset();
}

name_channel& resolver::channel_for(std::uint32_t timeout_ms) {
  struct stat now {};  // no file is a state like others
  (void)stat(servers_path, &now);
  std::erase_if(retired_, [](const auto& each) { return each->idle(); });
  if (!servers_file_ || !same_file(now, *servers_file_)) {
    for (auto& [timeout, each] : channels_) {
      retired_.push_back(std::move(each));
    }
    channels_.clear();
    servers_file_ = now;
  }
  // Few channels serve all timeouts.
  const std::uint32_t rounded_ms = std::bit_floor(timeout_ms);
  if (const auto known = channels_.find(rounded_ms); known != channels_.end()) {
    return *known->second;
  }
  auto made = std::make_unique<name_channel>(loop_, rounded_ms);
  return *(channels_[rounded_ms] = std::move(made));
}

std::unique_ptr<name_query> resolver::look_up(const std::string& name, int family,
                                              std::uint16_t port, std::uint32_t timeout_ms,
                                              name_found call) {
  const auto shared = std::make_shared<name_query::state>();
  if (is_loopback_name(name)) {
    shared->answer = address::from_text(family == AF_INET6 ? "::1" : "127.0.0.1", port);
    shared->answered = true;
    return std::make_unique<name_query>(shared);
  }
  channel_for(timeout_ms).ask(name, family, port, [shared](const address& found) {
    shared->answer = found;
    shared->answered = true;
    if (shared->call) {
      const name_found waiting = std::move(shared->call);
      waiting(found);
    }
  });
  if (!shared->answered) {
    shared->call = std::move(call);
  }
  return std::make_unique<name_query>(shared);
}

}  // namespace ot::qmond
