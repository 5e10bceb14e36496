// The publisher's side of event publishing. Events are noted for each subscriber while a handler
// runs and leave in few packets with the loop's flush: 1,500 tracks that go down at once are one
// packet. Nothing here waits: a subscriber that says nothing is closed after a while, one that does
// not read is cut off when its backlog is full, and neither holds up the others.
#include "platform/linux/events/server.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "platform/common/root_path.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/linux/monotonic.h"
#include "platform/linux/process/directories.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr std::size_t backlogs_limit = 524'288;  // events of all subscribers together: 18 MB
constexpr std::size_t kept_burst = 256;          // events of room kept between bursts

}  // namespace

int event_server::open(std::string& ret_error) {
  int error = make_directory(root_path(run_directory), 0750, ret_error);
  if (error == 0) {
    error = listener_.open(evm_sd_event(manager_), root_path(event_socket_path), SOCK_SEQPACKET,
                           ret_error);
  }
  if (error == 0) {
    const int r = sd_event_add_defer(
        evm_sd_event(manager_), &again_, [](sd_event_source*, void*) { return 0; }, nullptr);
    error = r < 0 ? -r : sd_event_source_set_enabled(again_, SD_EVENT_OFF) < 0 ? EINVAL : 0;
  }
  if (error == 0) {
    listener_.serve();
  }
  return error;
}

// The limit when there is none.
unsigned event_server::free_number(bool trusted) const noexcept {
  const unsigned end = trusted ? event_subscriber_limit : event_subscribers_for_all;
  unsigned number = 0;
  while (number < end && subscribers_[number] != nullptr) {
    ++number;
  }
  return number < end ? number : event_subscriber_limit;
}

void event_server::client_connected(unique_fd socket, bool trusted) noexcept {
  unsigned number = free_number(trusted);
  if (number == event_subscriber_limit && make_way(trusted)) {
    number = free_number(trusted);
  }
  if (number == event_subscriber_limit) {
    const event_subscription_answer full{EUSERS};
    send(socket.get(), &full, sizeof full, MSG_DONTWAIT | MSG_NOSIGNAL);
    return;
  }
  std::unique_ptr<event_subscription> added(
      new (std::nothrow) event_subscription(*this, number, ++arrivals_, std::move(socket)));
  if (added != nullptr && added->open(manager_) == status_ok) {
    subscribers_[number] = std::move(added);
  }
}

// The one that has waited longest without saying what it wants.
bool event_server::make_way(bool /*for_trusted*/) noexcept {
  const event_subscription* longest = nullptr;
  unsigned its_number = 0;
  for (unsigned number = 0; number < event_subscriber_limit; ++number) {
    const event_subscription* one = subscribers_[number].get();
    if (one != nullptr && !one->subscribed() &&
        (longest == nullptr || one->arrival() < longest->arrival())) {
      longest = one;
      its_number = number;
    }
  }
  if (longest != nullptr) {
    forget(its_number);
  }
  return longest != nullptr;
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
  const int status = filters_.add(number, filters);
  if (status == status_ok && filters.empty()) {
    all_.add(number);
    subscribers_[number]->begin_with(burst_begin_ + burst_.size());
  }
  return status;
}

void event_server::forget(unsigned number) noexcept {
  filters_.remove(number);
  all_.remove(number);
  unsent_.remove(number);
  subscribers_[number].reset();
}

void event_server::publish(const evdl_track_record& event,
                           const event_packet_record& record) noexcept {
  event_subscribers wanted = filters_.wanted_by(event, kind_.match);
  unsent_ |= wanted;
  wanted -= all_;
  wanted.for_each([&](unsigned number) {
    if (!subscribers_[number]->note(record)) {
      forget(number);
    }
  });
  if (all_ != event_subscribers{}) {
    add_to_burst(record);
  }
}

// Without memory those who would miss the event are cut off.
void event_server::add_to_burst(const event_packet_record& record) noexcept {
  try {
    burst_.push_back(record);
  } catch (const std::bad_alloc&) {
    const event_subscribers lost = all_;
    lost.for_each([this](unsigned number) { forget(number); });
  }
}

void event_server::send_to(unsigned number) noexcept {
  event_subscription& one = *subscribers_[number];
  const bool alive =
      all_.contains(number) ? one.send_burst(burst_, burst_begin_) : one.send_noted();
  if (!alive) {
    forget(number);
  }
}

void event_server::end_burst() noexcept {
  burst_begin_ += burst_.size();
  burst_.clear();
  if (burst_.capacity() > kept_burst) {
    std::vector<event_packet_record>().swap(burst_);
  }
}

void event_server::flush(std::uint64_t limit_us) noexcept {
  if (unsent_ == event_subscribers{}) {
    return;
  }
  const std::uint64_t began = monotonic_us();
  bool behind = false;
  std::exchange(unsent_, {}).for_each([&](unsigned number) {
    if (monotonic_us() - began > limit_us) {
      unsent_.add(number);
      return;
    }
    send_to(number);
    behind = behind || (subscribers_[number] != nullptr && subscribers_[number]->backlog() > 0);
  });
  const bool done = unsent_ == event_subscribers{};
  sd_event_source_set_enabled(again_, done ? SD_EVENT_OFF : SD_EVENT_ONESHOT);
  if (done) {
    end_burst();
  }
  if (behind) {
    bound_backlogs();
  }
}

// Cuts off those who are furthest behind while all of them together hold too much.
void event_server::bound_backlogs() noexcept {
  for (;;) {
    std::size_t total = 0;
    unsigned furthest = event_subscriber_limit;
    std::size_t most = 0;
    for (unsigned number = 0; number < event_subscriber_limit; ++number) {
      const std::size_t backlog =
          subscribers_[number] == nullptr ? 0 : subscribers_[number]->backlog();
      total += backlog;
      if (backlog > most) {
        most = backlog;
        furthest = number;
      }
    }
    if (total <= backlogs_limit) {
      return;
    }
    forget(furthest);
  }
}

}  // namespace ot
