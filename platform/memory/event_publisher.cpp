// Publisher and subscribers of events, all in this process. What a subscriber has not taken yet
// waits in its inbox; one that lets too much wait is cut off.
#include "platform/event_publisher.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <memory>
#include <vector>

#include "platform/event_subscriber.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "platform/memory/world.h"
#include "platform/status.h"

namespace ot {

struct evdl_publisher {
  evdl_event_kind kind;
};

struct evdl_subscriber {
  std::vector<evdl_track_record> wanted;  // none: everything
  std::deque<evdl_track_event> inbox;
  bool cut_off = false;
};

namespace {

constexpr std::size_t longest_inbox = 10'000;

// The layout of a published event.
struct published_track {
  fixed_text<32> name;
  std::uint32_t state = 0;
};
static_assert(sizeof(published_track) == 36);

struct events_part {
  std::unique_ptr<evdl_publisher> publisher;
  std::vector<evdl_subscriber*> subscribers;
  std::uint64_t published = 0;
};

bool wants(const evdl_subscriber& subscriber, const evdl_publisher& publisher, const void* event) {
  alloc_faults_resumed resume;
  return subscriber.wanted.empty() ||
         std::any_of(subscriber.wanted.begin(), subscriber.wanted.end(),
                     [&](const auto& wanted) { return publisher.kind.match(&wanted, event) == 1; });
}

void put_into_inbox(evdl_subscriber& subscriber, const published_track& event) {
  if (subscriber.inbox.size() == longest_inbox) {
    subscriber.cut_off = true;
  }
  if (!subscriber.cut_off) {
    subscriber.inbox.push_back({std::string{event.name.view()}, event.state});
  }
}

// Has the publisher take its own copy of the subscriptions.
int tell_publisher(const evdl_publisher& publisher, const std::vector<evdl_track_record>& wanted) {
  const auto count = static_cast<std::uint32_t>(wanted.size());
  std::vector<std::byte> entries(wanted.size() * publisher.kind.subscription_size);
  std::uint32_t name_size = 0;
  std::uint32_t state_size = 0;
  alloc_faults_resumed resume;
  return publisher.kind.copy_subscriptions(count, wanted.data(), sizeof(evdl_track_record),
                                           &name_size, &state_size, 1, entries.data());
}

}  // namespace

int evdl_publisher_register(evm* manager, const evdl_registration& registration,
                            evdl_publisher** ret, std::uint32_t /*version*/) noexcept {
  alloc_faults_paused pause;
  if (const int code = take_failure_code("evdl_publisher_register")) {
    return code;
  }
  if (manager == nullptr || registration.kind_count != 1 || registration.kind.match == nullptr ||
      registration.kind.copy_subscriptions == nullptr) {
    return invalid_argument;
  }
  auto& publisher = world_part<events_part>().publisher;
  publisher = std::make_unique<evdl_publisher>(evdl_publisher{registration.kind});
  *ret = publisher.get();
  return status_ok;
}

int evdl_event_publish(evdl_publisher* publisher, std::uint32_t type, std::uint32_t count,
                       std::size_t source_size, const void* source, std::size_t published_size,
                       const void* published) noexcept {
  alloc_faults_paused pause;
  if (const int code = take_failure_code("evdl_event_publish")) {
    return code;
  }
  if (publisher == nullptr || type != publisher->kind.type ||
      published_size != sizeof(published_track)) {
    return invalid_argument;
  }
  events_part& part = world_part<events_part>();
  for (std::uint32_t i = 0; i < count; ++i) {
    const void* event = static_cast<const std::byte*>(source) + i * source_size;
    published_track out;
    std::memcpy(&out, static_cast<const std::byte*>(published) + i * published_size, sizeof out);
    for (evdl_subscriber* subscriber : part.subscribers) {
      if (wants(*subscriber, *publisher, event)) {
        put_into_inbox(*subscriber, out);
      }
    }
    ++part.published;
  }
  return status_ok;
}

int evdl_subscribe(std::span<const evdl_filter> filters, evdl_subscriber** ret) noexcept {
  alloc_faults_paused pause;
  events_part& part = world_part<events_part>();
  if (part.publisher == nullptr) {
    return ledger_unreachable;
  }
  auto subscriber = std::make_unique<evdl_subscriber>();
  for (const evdl_filter& filter : filters) {
    const fixed_text<32> name{filter.track};
    subscriber->wanted.push_back({static_cast<std::uint32_t>(filter.track.size()),
                                  filter.any_state ? 1U : 0U, name, filter.state});
  }
  if (!filters.empty()) {
    if (const int code = tell_publisher(*part.publisher, subscriber->wanted)) {
      return code;
    }
  }
  *ret = part.subscribers.emplace_back(subscriber.release());
  return status_ok;
}

// Nothing to poll in here: events are in the inbox or they are not.
int evdl_subscriber_fd(const evdl_subscriber* /*subscriber*/) noexcept {
  return -1;
}

int evdl_receive(evdl_subscriber* subscriber, int /*timeout_ms*/,
                 const std::function<void(const evdl_track_event&)>& on_event) {
  alloc_faults_paused pause;
  while (!subscriber->inbox.empty()) {
    const evdl_track_event event = subscriber->inbox.front();
    subscriber->inbox.pop_front();
    on_event(event);
  }
  const auto& subscribers = world_part<events_part>().subscribers;
  const bool known =
      std::find(subscribers.begin(), subscribers.end(), subscriber) != subscribers.end();
  return subscriber->cut_off || !known ? ledger_unreachable : status_ok;
}

void evdl_unsubscribe(evdl_subscriber* subscriber) noexcept {
  alloc_faults_paused pause;
  std::erase(world_part<events_part>().subscribers, subscriber);
  delete subscriber;
}

namespace field {

std::uint64_t events_published() {
  return world_part<events_part>().published;
}

}  // namespace field
}  // namespace ot
