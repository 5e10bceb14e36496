// The publisher's side of event publishing. Events are noted for each subscriber while a handler
// runs and leave in few packets with the loop's flush: 1,500 tracks that go down at once are one
// packet. Nothing here waits: a subscriber that says nothing is closed after a while, one that does
// not read is cut off when its backlog is full, and neither holds up the others.
#include "platform/linux/events/server.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <memory>
#include <new>
#include <string>

#include "platform/common/root_path.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/linux/process/directories.h"
#include "platform/linux/unix_address.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr int waiting_connections = 16;
constexpr std::uint64_t silence_limit_usec = 2'000'000;
constexpr std::size_t backlog_limit = 16'384;  // events
constexpr std::size_t kept_capacity = 256;     // events of room kept between flushes

struct subscription_packet {
  event_subscription_head head;
  std::array<evdl_track_record, event_filter_limit> filters;
};

}  // namespace

event_server::~event_server() {
  sd_event_source_disable_unref(source_);
}

int event_server::open() noexcept {
  try {
    const int status = make_directory(root_path(run_directory), 0750);
    return status == status_ok ? listen_at(root_path(event_socket_path)) : status;
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
}

// An old socket is a dead one: a second instance on this root has been refused long before.
int event_server::listen_at(const std::string& path) noexcept {
  sockaddr_un address;
  if (!unix_address(path, &address)) {
    return ENAMETOOLONG;
  }
  listener_ = unique_fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  unlink(path.c_str());
  if (!listener_.valid() ||
      bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return errno;
  }
  if (const int status = share_with_group(path, 0660); status != 0) {
    return status;
  }
  if (listen(listener_.get(), waiting_connections) != 0) {
    return errno;
  }
  const int r =
      sd_event_add_io(evm_sd_event(manager_), &source_, listener_.get(), EPOLLIN, on_connect, this);
  return r < 0 ? -r : status_ok;
}

int event_server::on_connect(sd_event_source* /*source*/, int fd, std::uint32_t /*events*/,
                             void* server) {
  auto* self = static_cast<event_server*>(server);
  unique_fd connection(accept4(fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!connection.valid()) {
    return 0;
  }
  unsigned number = 0;
  while (number < event_subscriber_limit && self->subscribers_[number] != nullptr) {
    ++number;
  }
  if (number == event_subscriber_limit) {
    const event_subscription_answer full{EUSERS};
    send(connection.get(), &full, sizeof full, MSG_DONTWAIT | MSG_NOSIGNAL);
    return 0;
  }
  std::unique_ptr<event_subscription> added(
      new (std::nothrow) event_subscription(*self, number, std::move(connection)));
  if (added != nullptr && added->open(self->manager_) == status_ok) {
    self->subscribers_[number] = std::move(added);
  }
  return 0;
}

int event_server::notify_publisher(std::span<const evdl_track_record> filters) noexcept {
  const std::size_t size = filters.size() * kind_.subscription_size;
  const std::unique_ptr<std::byte[]> entries(new (std::nothrow) std::byte[size]());
  if (entries == nullptr) {
    return no_memory;
  }
  std::uint32_t name_size = 0;
  std::uint32_t state_size = 0;
  constexpr std::uint32_t from_events = 1;  // the filters have the layout of event records
  return kind_.copy_subscriptions(static_cast<std::uint32_t>(filters.size()), filters.data(),
                                  sizeof(evdl_track_record), &name_size, &state_size, from_events,
                                  entries.get());
}

int event_server::subscribe(unsigned number, std::span<const evdl_track_record> filters) noexcept {
  if (!filters.empty()) {
    if (const int status = notify_publisher(filters); status != status_ok) {
      return status;
    }
  }
  return filters_.add(number, filters);
}

void event_server::forget(unsigned number) noexcept {
  filters_.remove(number);
  unsent_ &= ~(event_subscribers{1} << number);
  subscribers_[number].reset();
}

void event_server::publish(const evdl_track_record& event,
                           const event_packet_record& record) noexcept {
  const event_subscribers wanted = filters_.wanted_by(event, kind_.match);
  unsent_ |= wanted;
  for (event_subscribers left = wanted; left != 0; left &= left - 1) {
    const auto number = static_cast<unsigned>(std::countr_zero(left));
    if (!subscribers_[number]->note(record)) {
      forget(number);
    }
  }
}

void event_server::flush() noexcept {
  for (event_subscribers left = std::exchange(unsent_, 0); left != 0; left &= left - 1) {
    const auto number = static_cast<unsigned>(std::countr_zero(left));
    if (!subscribers_[number]->send_noted()) {
      forget(number);
    }
  }
}

// --- One subscriber's connection -----------------------------------------------------------------

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

bool event_subscription::send_noted() noexcept {
  std::size_t sent = 0;
  while (sent < noted_.size()) {
    const std::size_t count = std::min(noted_.size() - sent, event_packet_limit);
    if (send(connection_.get(), noted_.data() + sent, count * sizeof noted_[0],
             MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
      if (errno == EAGAIN || errno == EINTR) {
        break;
      }
      return false;
    }
    sent += count;
  }
  noted_.erase(noted_.begin(), noted_.begin() + static_cast<std::ptrdiff_t>(sent));
  if (noted_.empty() && noted_.capacity() > kept_capacity) {
    std::vector<event_packet_record>().swap(noted_);
  }
  const std::uint32_t interest = noted_.empty() ? EPOLLIN : EPOLLIN | EPOLLOUT;
  return sd_event_source_set_io_events(io_, interest) >= 0;
}

}  // namespace ot
