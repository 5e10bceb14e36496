#include "bench/e2e/peers/readers.h"

#include <fcntl.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "bench/e2e/link_netlink.h"
#include "platform/status.h"

namespace ot::bench {
namespace {

constexpr std::uint32_t state_up = 1;

// The number in "tNNN"; past all followers for another name.
std::size_t number_of(std::string_view name) {
  const std::string digits(name.substr(std::min<std::size_t>(name.size(), 1)));
  char* end = nullptr;
  const unsigned long number = std::strtoul(digits.c_str(), &end, 10);
  const bool ours = name.starts_with('t') && !digits.empty() && *end == '\0';
  return ours ? number : SIZE_MAX;
}

class listener : public peer_reader {
 public:
  explicit listener(std::vector<unsigned> links)
      : peer_reader("listener", links.size()),
        links_(std::move(links)),
        socket_(open_netlink(RTMGRP_LINK, 0)) {
    const int size = 8 * 1024 * 1024;
    setsockopt(mnl_socket_get_fd(socket_.get()), SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size);
  }

 private:
  void read() override {
    const ssize_t size = mnl_socket_recvfrom(socket_.get(), data_.data(), data_.size());
    const auto now = peer_clock::now();
    int left = static_cast<int>(size);
    const auto* message = reinterpret_cast<const nlmsghdr*>(data_.data());
    for (; left > 0 && mnl_nlmsg_ok(message, left); message = mnl_nlmsg_next(message, &left)) {
      const auto* link = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message));
      const auto at = std::ranges::find(links_, static_cast<unsigned>(link->ifi_index));
      if (message->nlmsg_type == RTM_NEWLINK && at != links_.end()) {
        note(static_cast<std::size_t>(at - links_.begin()), link_is_up(message), now);
      }
    }
  }

  std::vector<unsigned> links_;
  netlink_socket socket_;
  netlink_buffer data_{};
};

class subscriber : public peer_reader {
 public:
  explicit subscriber(std::size_t followers) : peer_reader("subscriber", followers) {
    if (evdl_subscribe({}, &events_) != status_ok) {
      throw std::runtime_error("cannot subscribe: is the service running?");
    }
  }

 private:
  void read() override {
    const int status = evdl_receive(events_, -1, [this](const evdl_track_event& event) {
      note(number_of(event.track), event.state == state_up, peer_clock::now());
    });
    if (status != status_ok) {
      throw std::runtime_error("the subscription ended");
    }
  }

  evdl_subscriber* events_ = nullptr;
};

class line_reader : public peer_reader {
 public:
  line_reader(const std::string& name, const std::string& path, std::size_t followers)
      : peer_reader(name, followers), fifo_(open(path.c_str(), O_RDWR | O_CLOEXEC)) {
    if (!fifo_.valid()) {
      throw std::system_error(errno, std::generic_category(), path);
    }
  }

 private:
  void read() override {
    std::array<char, 65536> data;
    const ssize_t size = ::read(fifo_.get(), data.data(), data.size());
    const auto now = peer_clock::now();
    for (const char c :
         std::string_view(data.data(), static_cast<std::size_t>(size > 0 ? size : 0))) {
      if (c != ' ' && c != '\n' && c != '"') {
        word_ += c;
        continue;
      }
      take_word(now);
      word_.clear();
      follower_ = c == '\n' ? SIZE_MAX : follower_;
    }
  }

  void take_word(peer_clock::time_point now) {
    const bool up = word_ == "up" || word_ == "BACKUP" || word_ == "MASTER";
    if (up || word_ == "down" || word_ == "FAULT") {
      note(follower_, up, now);
    } else if (const std::size_t number = number_of(word_); number != SIZE_MAX) {
      follower_ = number;
    }
  }

  unique_fd fifo_;
  std::string word_;
  std::size_t follower_ = SIZE_MAX;  // that the line is about
};

}  // namespace

void peer_reader::start() {
  thread_ = std::thread([this] {
    for (;;) {
      read();
    }
  });
  thread_.detach();
}

void peer_reader::expect(bool up) {
  const std::lock_guard guard(lock_);
  up_ = up;
  count_ = 0;
  std::ranges::fill(heard_, peer_clock::time_point{});
}

void peer_reader::note(std::size_t follower, bool up, peer_clock::time_point when) {
  const std::lock_guard guard(lock_);
  if (follower >= heard_.size() || up != up_ || heard_[follower] != peer_clock::time_point{}) {
    return;
  }
  heard_[follower] = when;
  if (++count_ == heard_.size()) {
    complete_.notify_one();
  }
}

void peer_reader::await(peer_clock::time_point end) {
  std::unique_lock guard(lock_);
  complete_.wait_until(guard, end, [this] { return count_ == heard_.size(); });
}

std::vector<peer_clock::time_point> peer_reader::heard() {
  const std::lock_guard guard(lock_);
  return heard_;
}

std::unique_ptr<peer_reader> make_listener(std::vector<unsigned> links) {
  return std::make_unique<listener>(std::move(links));
}

std::unique_ptr<peer_reader> make_subscriber(std::size_t followers) {
  return std::make_unique<subscriber>(followers);
}

std::unique_ptr<peer_reader> make_line_reader(const std::string& name, const std::string& path,
                                              std::size_t followers) {
  return std::make_unique<line_reader>(name, path, followers);
}

}  // namespace ot::bench
