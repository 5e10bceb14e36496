// Publisher and subscribers of events, all in this process. What a subscriber has not taken yet
// waits in its inbox; one that lets too much wait is cut off.
#include "platform/event_publisher.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/common/event_filters.h"
#include "platform/event_subscriber.h"
#include "platform/ledger_status.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "platform/memory/world.h"

namespace ot {

struct evdl_publisher {
  evdl_event_kind kind;
};

struct evdl_subscriber {
  std::deque<evdl_track_event> inbox;
  bool cut_off = false;
};

namespace {

constexpr std::size_t longest_inbox = 10'000;
constexpr int no_room = 23;  // ENFILE

// The layout of a published event.
struct published_track {
  fixed_text<32> name;
  std::uint32_t state = 0;
};
static_assert(sizeof(published_track) == 36);

struct events_part {
  std::unique_ptr<evdl_publisher> publisher;
  event_filters filters;
  std::array<evdl_subscriber*, event_subscriber_limit> subscribers{};  // by number
  std::uint64_t published = 0;

  void cut_off(unsigned number) {
    filters.remove(number);
    std::exchange(subscribers[number], nullptr)->cut_off = true;
  }
};

void put_into_inbox(events_part& part, unsigned number, const published_track& event) {
  evdl_subscriber& subscriber = *part.subscribers[number];
  if (subscriber.inbox.size() == longest_inbox) {
    part.cut_off(number);
  } else {
    subscriber.inbox.push_back({std::string{event.name.view()}, event.state});
  }
}

void publish_one(events_part& part, const evdl_publisher& publisher, const evdl_track_record& event,
                 const published_track& out) {
  event_subscribers wanting;
  {
    alloc_faults_resumed resume;
    wanting = part.filters.wanted_by(event, publisher.kind.match);
  }
  wanting.for_each([&](unsigned number) { put_into_inbox(part, number, out); });
  ++part.published;
}

// Has the publisher take its own copy of the subscriptions.
int hand_to_publisher(const evdl_publisher& publisher,
                      const std::vector<evdl_track_record>& wanted) {
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
                            evdl_publisher** ret, std::uint32_t version) noexcept {
  alloc_faults_paused pause;
  if (const int code = take_failure_code("evdl_publisher_register")) {
    return code;
  }
  note_introduction("evdl_publisher_register",
                    {registration.publisher.view(), std::to_string(registration.kind_count),
                     registration.kind.name.view(), std::to_string(version)});
  if (manager == nullptr || registration.kind_count != 1 || registration.kind.match == nullptr ||
      registration.kind.copy_subscriptions == nullptr) {
    return invalid_argument;
  }
  events_part& part = world_part<events_part>();
  for (unsigned number = 0; number < event_subscriber_limit; ++number) {
    if (part.subscribers[number] != nullptr) {
      part.cut_off(number);
    }
  }
  part.publisher = std::make_unique<evdl_publisher>(evdl_publisher{registration.kind});
  *ret = part.publisher.get();
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
      source_size != sizeof(evdl_track_record) || published_size != sizeof(published_track)) {
    return invalid_argument;
  }
  for (std::uint32_t i = 0; i < count; ++i) {
    evdl_track_record event;
    published_track out;
    std::memcpy(&event, static_cast<const std::byte*>(source) + i * sizeof event, sizeof event);
    std::memcpy(&out, static_cast<const std::byte*>(published) + i * sizeof out, sizeof out);
    publish_one(world_part<events_part>(), *publisher, event, out);
  }
  return status_ok;
}

int evdl_subscribe(std::span<const evdl_filter> filters, evdl_subscriber** ret) noexcept {
  alloc_faults_paused pause;
  events_part& part = world_part<events_part>();
  if (part.publisher == nullptr) {
    return ledger_unreachable;
  }
  const auto slot = std::find(part.subscribers.begin(), part.subscribers.end(), nullptr);
  if (slot == part.subscribers.end()) {
    return no_room;
  }
  std::vector<evdl_track_record> records;
  for (const evdl_filter& filter : filters) {
    records.push_back({static_cast<std::uint32_t>(filter.track.size()), filter.any_state ? 1U : 0U,
                       fixed_text<32>{filter.track}, filter.state});
  }
  if (!records.empty()) {
    if (const int code = hand_to_publisher(*part.publisher, records)) {
      return code;
    }
  }
  part.filters.add(static_cast<unsigned>(slot - part.subscribers.begin()), records);
  *ret = *slot = new evdl_subscriber;
  return status_ok;
}

int evdl_subscribe_begin(std::span<const evdl_filter> filters, evdl_subscriber** ret) noexcept {
  return evdl_subscribe(filters, ret);
}

int evdl_subscribe_answer(const evdl_subscriber* /*subscriber*/, int /*timeout_ms*/) noexcept {
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
  return subscriber->cut_off ? ledger_unreachable : status_ok;
}

void evdl_unsubscribe(evdl_subscriber* subscriber) noexcept {
  alloc_faults_paused pause;
  events_part& part = world_part<events_part>();
  const auto slot = std::find(part.subscribers.begin(), part.subscribers.end(), subscriber);
  if (subscriber != nullptr && slot != part.subscribers.end()) {
    part.cut_off(static_cast<unsigned>(slot - part.subscribers.begin()));
  }
  delete subscriber;
}

namespace field {

std::uint64_t events_published() {
  return world_part<events_part>().published;
}

}  // namespace field
}  // namespace ot
