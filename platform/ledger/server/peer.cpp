// A client's conversation, on sd-bus without a bus. Everything a peer can do to the service is
// bounded here: how long it may take to authenticate, to finish a message or to read an answer, how
// large a message may be, how many requests one turn of the loop serves, and what waits for it. A
// peer that does not read its answers is not read from; whoever breaks a rule is dropped.
#include "platform/ledger/server/peer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <new>
#include <utility>

#include "platform/ledger/item.h"
#include "platform/ledger/messages.h"
#include "platform/ledger_status.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/linux/monotonic.h"

namespace ot {
namespace {

constexpr int requests_a_turn = 16;
constexpr std::uint64_t turn_us = 2'000;  // after which no further request is begun
constexpr std::uint64_t first_message_us = 2'000'000;
constexpr std::uint64_t stuck_us = 5'000'000;
constexpr int socket_buffer = 128 * 1024;
constexpr std::size_t message_overhead = 4096;  // what the bus's header adds, generously

}  // namespace

int ledger_peer::start(sd_event* event, unique_fd& socket) noexcept {
  watched_ = unique_fd{fcntl(socket.get(), F_DUPFD_CLOEXEC, 0)};
  if (!watched_.valid()) {
    return -errno;
  }
  sd_bus* made = nullptr;
  int result = sd_bus_new(&made);
  bus_.reset(made);
  if (result >= 0) {
    result = sd_bus_set_fd(made, socket.get(), socket.get());
  }
  if (result < 0) {
    return result;
  }
  socket.release();
  return attach(event);
}

int ledger_peer::attach(sd_event* event) noexcept {
  sd_bus* made = bus_.get();
  sd_id128_t id{};
  sd_event_source* io = nullptr;
  sd_event_source* again = nullptr;
  sd_event_source* deadline = nullptr;
  // The deferred source starts switched on: the bus has read what was there before the loop
  // watches.
  const bool set = sd_id128_randomize(&id) >= 0 && sd_bus_set_server(made, 1, id) >= 0 &&
                   sd_bus_negotiate_fds(made, 0) >= 0 &&
                   sd_bus_add_filter(made, nullptr, on_message, this) >= 0 &&
                   sd_bus_start(made) >= 0 &&
                   sd_event_add_io(event, &io, watched_.get(), EPOLLIN, on_io, this) >= 0 &&
                   sd_event_add_defer(event, &again, on_again, this) >= 0 &&
                   sd_event_add_time_relative(event, &deadline, CLOCK_MONOTONIC, first_message_us,
                                              1000, on_deadline, this) >= 0;
  // The bus asks for megabytes; what waits for a slow reader is to wait here, where it is bounded.
  setsockopt(watched_.get(), SOL_SOCKET, SO_SNDBUF, &socket_buffer, sizeof socket_buffer);
  io_.reset(io);
  again_.reset(again);
  deadline_.reset(deadline);
  sd_event_now(event, CLOCK_MONOTONIC, &last_heard_us_);
  return set ? 0 : -ENOMEM;
}

// What its socket and the bus hold may be a request that the loop has not come to yet.
bool ledger_peer::idle() const noexcept {
  int waiting = 0;
  std::uint64_t unserved = 0;
  return !over_ && !commit_ && followed_.empty() && unsent() == 0 && unfinished_ == 0 &&
         sd_bus_get_n_queued_read(bus_.get(), &unserved) >= 0 && unserved == 0 &&
         ioctl(watched_.get(), FIONREAD, &waiting) == 0 && waiting == 0;
}

int ledger_peer::on_io(sd_event_source* /*source*/, int fd, std::uint32_t events,
                       void* userdata) noexcept {
  auto& self = *static_cast<ledger_peer*>(userdata);
  if (self.commit_ && (events & (EPOLLHUP | EPOLLERR)) != 0) {
    self.owner_.peer_ended(self);  // it is not read from, and this would come again and again
    return 0;
  }
  // The bus itself takes messages of up to 128 MB. Counting what is there before each turn ends a
  // message that is too large while it comes in; a sender faster than the turn is ended after it.
  int waiting = 0;
  if (ioctl(fd, FIONREAD, &waiting) == 0 && waiting > 0) {
    self.unfinished_ += static_cast<std::size_t>(waiting);
  }
  self.run();
  return 0;
}

int ledger_peer::on_again(sd_event_source* /*source*/, void* userdata) noexcept {
  static_cast<ledger_peer*>(userdata)->run();
  return 0;
}

int ledger_peer::on_deadline(sd_event_source* source, std::uint64_t /*now*/,
                             void* userdata) noexcept {
  auto& self = *static_cast<ledger_peer*>(userdata);
  if (!self.waits_for_peer()) {
    return 0;
  }
  if (self.over_ || !(evm_overlooked(source) || self.has_done_its_part())) {
    self.owner_.peer_ended(self);
    return 0;
  }
  sd_event_source_set_time_relative(source, self.patience_us());
  sd_event_source_set_enabled(source, SD_EVENT_ONESHOT);
  return 0;
}

// Whether what the deadline is for waits in the socket, because the loop has much to do.
bool ledger_peer::has_done_its_part() const noexcept {
  const short awaited = unsent() > 0 ? POLLOUT : POLLIN;
  pollfd state{.fd = watched_.get(), .events = awaited, .revents = 0};
  return poll(&state, 1, 0) > 0 && (state.revents & awaited) != 0;
}

std::uint64_t ledger_peer::patience_us() const noexcept {
  return spoken_ ? stuck_us : first_message_us;
}

// A turn: serve, send, and say what to wait for.
void ledger_peer::run() noexcept {
  bool more = false;
  try {
    more = process();
    send_notices();
  } catch (const std::bad_alloc&) {
    over_ = true;
  }
  if (over_ || sd_bus_is_open(bus_.get()) <= 0) {
    owner_.peer_ended(*this);
    return;
  }
  sd_event_source_set_enabled(again_.get(), more ? SD_EVENT_ONESHOT : SD_EVENT_OFF);
  watch();
}

std::size_t ledger_peer::message_max() const noexcept {
  return rights_.write ? ledger_writers_message_max : ledger_message_max;
}

// True when requests may be left over. Behind a commit nothing is served before it is answered.
bool ledger_peer::process() noexcept {
  const std::uint64_t began = monotonic_us();
  for (int turn = 0; !commit_ && turn < requests_a_turn && monotonic_us() - began < turn_us;
       ++turn) {
    const std::uint64_t before = unsent();
    const int result = sd_bus_process(bus_.get(), nullptr);
    progress_ = progress_ || unsent() < before;
    if (result < 0 || unfinished_ > message_max() + message_overhead) {
      over_ = true;
    }
    if (over_ || result == 0 || unsent() > 0) {
      return false;
    }
  }
  return !commit_;
}

int ledger_peer::on_message(sd_bus_message* message, void* userdata,
                            sd_bus_error* /*error*/) noexcept {
  auto& self = *static_cast<ledger_peer*>(userdata);
  self.unfinished_ = 0;
  self.spoken_ = true;
  sd_event_now(sd_event_source_get_event(self.io_.get()), CLOCK_MONOTONIC, &self.last_heard_us_);
  self.progress_ = true;
  try {
    self.answer(message);
  } catch (const std::bad_alloc&) {
    self.over_ = true;
  }
  return 1;
}

std::uint64_t ledger_peer::unsent() const noexcept {
  std::uint64_t count = 0;
  return sd_bus_get_n_queued_write(bus_.get(), &count) < 0 ? 0 : count;
}

bool ledger_peer::waits_for_peer() const noexcept {
  return over_ || !spoken_ || unfinished_ > 0 || unsent() > 0;
}

// Reads only while everything is written and no commit is under way. The deadline runs while
// something is expected of the peer, and starts anew with each step that it takes.
void ledger_peer::watch() noexcept {
  std::uint32_t awaited = commit_ ? 0U : EPOLLIN;
  if (unsent() > 0) {
    awaited = EPOLLOUT;
  }
  sd_event_source_set_io_events(io_.get(), awaited);
  if (over_) {
    sd_event_source_set_time_relative(deadline_.get(), 0);
    sd_event_source_set_enabled(deadline_.get(), SD_EVENT_ONESHOT);
    return;
  }
  int enabled = SD_EVENT_OFF;
  sd_event_source_get_enabled(deadline_.get(), &enabled);
  if (!waits_for_peer()) {
    sd_event_source_set_enabled(deadline_.get(), SD_EVENT_OFF);
  } else if (spoken_ && (progress_ || enabled == SD_EVENT_OFF)) {
    sd_event_source_set_time_relative(deadline_.get(), patience_us());
    sd_event_source_set_enabled(deadline_.get(), SD_EVENT_ONESHOT);
  }
  progress_ = false;
}

}  // namespace ot
