// One subscriber's connection: what it asks for, and what it has still to get.
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <new>

#include "platform/linux/events/server.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr std::uint64_t silence_limit_usec = 2'000'000;
constexpr std::size_t backlog_limit = 16'384;  // events
constexpr std::size_t kept_capacity = 256;     // events of room kept between flushes

struct subscription_packet {
  event_subscription_head head;
  std::array<evdl_track_record, event_filter_limit> filters;
};

}  // namespace

event_subscription::~event_subscription() {
  sd_event_source_disable_unref(io_);
  sd_event_source_disable_unref(silence_);
}

int event_subscription::open(evm* manager) noexcept {
  int r = sd_event_add_io(evm_sd_event(manager), &io_, connection_.get(), EPOLLIN, on_io, this);
  if (r >= 0) {
    r = evm_start_timer(manager, &silence_, CLOCK_MONOTONIC, silence_limit_usec, on_silence, this);
  }
  return r < 0 ? -r : status_ok;
}

int event_subscription::on_silence(sd_event_source* /*source*/, std::uint64_t /*usec*/,
                                   void* subscription) {
  auto* self = static_cast<event_subscription*>(subscription);
  self->server_.forget(self->number_);
  return 0;
}

int event_subscription::on_io(sd_event_source* /*source*/, int /*fd*/, std::uint32_t events,
                              void* subscription) {
  auto* self = static_cast<event_subscription*>(subscription);
  bool alive = true;
  if ((events & EPOLLOUT) != 0) {
    alive = self->send_noted();
  }
  if (alive && (events & ~static_cast<std::uint32_t>(EPOLLOUT)) != 0) {
    // A subscriber speaks once; anything later, the end above all, ends it.
    alive = !self->subscribed_ && self->read_subscription();
  }
  if (!alive) {
    self->server_.forget(self->number_);
  }
  return 0;
}

bool event_subscription::read_subscription() noexcept {
  const std::unique_ptr<subscription_packet> packet(new (std::nothrow) subscription_packet);
  if (packet == nullptr) {
    return false;
  }
  const ssize_t length = recv(connection_.get(), packet.get(), sizeof *packet, MSG_TRUNC);
  if (length < 0 && (errno == EAGAIN || errno == EINTR)) {
    return true;
  }
  const event_subscription_head& head = packet->head;
  const std::size_t expected = sizeof head + head.count * sizeof packet->filters[0];
  if (length < static_cast<ssize_t>(sizeof head) || head.version != event_protocol_version ||
      head.count > event_filter_limit || static_cast<std::size_t>(length) != expected) {
    return false;
  }
  for (evdl_track_record& filter : std::span(packet->filters).first(head.count)) {
    terminate(filter.name);
  }
  const event_subscription_answer answer{
      server_.subscribe(number_, std::span(packet->filters).first(head.count))};
  subscribed_ = answer.status == status_ok;
  silence_ = sd_event_source_disable_unref(silence_);
  const ssize_t sent = send(connection_.get(), &answer, sizeof answer, MSG_DONTWAIT | MSG_NOSIGNAL);
  return subscribed_ && sent == static_cast<ssize_t>(sizeof answer);
}

bool event_subscription::note(const event_packet_record& record) noexcept {
  if (noted_.size() >= backlog_limit) {
    return false;
  }
  try {
    noted_.push_back(record);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

std::ptrdiff_t event_subscription::send_some(std::span<const event_packet_record> events) noexcept {
  std::size_t sent = 0;
  while (sent < events.size()) {
    const std::size_t count = std::min(events.size() - sent, event_packet_limit);
    if (send(connection_.get(), events.data() + sent, count * sizeof events[0],
             MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
      if (errno == EAGAIN || errno == EINTR) {
        break;
      }
      return -1;
    }
    sent += count;
  }
  return static_cast<std::ptrdiff_t>(sent);
}

bool event_subscription::send_noted() noexcept {
  const std::ptrdiff_t sent = send_some(noted_);
  if (sent < 0) {
    return false;
  }
  noted_.erase(noted_.begin(), noted_.begin() + sent);
  if (noted_.empty() && noted_.capacity() > kept_capacity) {
    std::vector<event_packet_record>().swap(noted_);
  }
  const std::uint32_t interest = noted_.empty() ? EPOLLIN : EPOLLIN | EPOLLOUT;
  return sd_event_source_set_io_events(io_, interest) >= 0;
}

// What the connection does not take, or has to wait behind what it did not take, is noted.
bool event_subscription::send_burst(std::span<const event_packet_record> burst,
                                    std::uint64_t begin) noexcept {
  std::span<const event_packet_record> left = burst.subspan(next_ - begin);
  next_ = begin + burst.size();
  if (noted_.empty()) {
    const std::ptrdiff_t sent = send_some(left);
    if (sent < 0) {
      return false;
    }
    left = left.subspan(static_cast<std::size_t>(sent));
    if (left.empty()) {
      return true;
    }
  }
  for (const event_packet_record& record : left) {
    if (!note(record)) {
      return false;
    }
  }
  return send_noted();
}

}  // namespace ot
