// The event outlet: what is registered with the event policy manager, how subscriptions match, and
// the records that leave.

#include "oper/outlets/events.h"

#include <cstring>
#include <memory>
#include <new>

#include "platform/status.h"

namespace ot {

evdl_event_kind ot_ep_ev_info = {
    ot_ep_copy_subscriptions,
    ot_ep_match,
    nullptr,
    nullptr,
    track_event_type,
    fixed_text<48>{"event_register_track"},
    sizeof(ot_ep_subscription),
};

evdl_publisher* ot_ep_evd_handle = nullptr;

namespace {

constexpr std::uint32_t subscription_name_size = 32;
constexpr std::uint32_t subscription_state_size = 16;

static_assert(sizeof(evdl_registration) == 128, "the platform takes a record of this size");

ot_ep_subscription_update subscription_update = nullptr;

int publish(const ot_ep_track_event* records, std::uint32_t count,
            ot_ep_published_event* published) noexcept {
  for (std::uint32_t i = 0; i < count; ++i) {
    published[i].name = records[i].name;
    published[i].state = records[i].state;
  }
  return evdl_event_publish(ot_ep_evd_handle, track_event_type, count, sizeof *records, records,
                            sizeof *published, published);
}

}  // namespace

void ot_ep_register(evm* manager, ot_ep_subscription_update on_update) noexcept {
  const std::unique_ptr<evdl_registration> registration{new (std::nothrow) evdl_registration{}};
  if (registration == nullptr) {
    return;
  }
  registration->publisher.assign("OBJECT_TRACKING");
  registration->kind_count = 1;
  registration->kind = ot_ep_ev_info;
  evdl_publisher_register(manager, *registration, &ot_ep_evd_handle, 1);
  subscription_update = on_update;
}

int ot_ep_publish(const ot_ep_track_event* records, std::uint32_t count) noexcept {
  if (ot_ep_evd_handle == nullptr) {
    return status_ok;
  }
  // A publication has one event; only larger batches need memory.
  if (count == 1) {
    ot_ep_published_event published;
    return publish(records, count, &published);
  }
  const std::unique_ptr<ot_ep_published_event[]> published{new (std::nothrow)
                                                               ot_ep_published_event[count]};
  return published == nullptr ? no_memory : publish(records, count, published.get());
}

int ot_ep_match(const void* a, const void* b) {
  const auto* subscription = static_cast<const ot_ep_track_event*>(a);
  const auto* event = static_cast<const ot_ep_track_event*>(b);
  const bool match = subscription->name_length == event->name_length &&
                     (subscription->any_state != 0 || subscription->state == event->state) &&
                     subscription->name == event->name;
  return match ? 1 : 0;
}

int ot_ep_copy_subscriptions(std::uint32_t count, const void* source, std::uint32_t stride,
                             std::uint32_t* out_name_size, std::uint32_t* out_state_size,
                             std::uint32_t from_events, void* destination) {
  if (destination == nullptr) {
    return no_memory;
  }
  const auto* texts = static_cast<const char*>(source);
  const auto* events = static_cast<const ot_ep_track_event*>(source);
  auto* entries = static_cast<ot_ep_subscription*>(destination);
  for (std::uint32_t i = 0; i < count; ++i) {
    const char* name =
        from_events == 0 ? texts + static_cast<std::size_t>(i) * stride : events[i].name.c_str();
    const std::size_t length = strnlen(name, sizeof entries[i].name);
    std::memset(entries[i].name, 0, sizeof entries[i].name);
    std::memcpy(entries[i].name, name, length);
  }
  if (subscription_update != nullptr) {
    subscription_update(count, destination);
  }
  *out_name_size = subscription_name_size;
  *out_state_size = subscription_state_size;
  return status_ok;
}

}  // namespace ot
