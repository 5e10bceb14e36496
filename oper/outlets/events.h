// Publishing track states as events of the publisher "OBJECT_TRACKING", kind
// "event_register_track". Main thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/event_publisher.h"

namespace ot {

inline constexpr std::uint32_t track_event_type = 372;

// A subscription or an event as the publication side fills it.
using ot_ep_track_event = evdl_track_record;

// The record that subscribers receive.
struct ot_ep_published_event {
  fixed_text<32> name;
  std::uint32_t state = 0;  // 1 up, 2 down, 0 unknown
};
static_assert(sizeof(ot_ep_published_event) == 36);

// One copied subscription, as the update callback gets it.
struct ot_ep_subscription {
  char name[32];  // not terminated when 32 characters long
  std::uint32_t state[4];
};
static_assert(sizeof(ot_ep_subscription) == 48);

// Notified of new subscriptions: how many, and the entries copied.
using ot_ep_subscription_update = void (*)(std::uint32_t count, const void* subscriptions);

extern evdl_event_kind ot_ep_ev_info;
extern evdl_publisher* ot_ep_evd_handle;

// Registers the publisher; `on_update` may be null. Without memory, or when the platform refuses,
// nothing is registered and publishing does nothing. Once, before the first publication.
void ot_ep_register(evm* manager, ot_ep_subscription_update on_update) noexcept;

// Publishes `count` events. The platform's result; 12 without memory; 0 while not registered.
int ot_ep_publish(const ot_ep_track_event* records, std::uint32_t count) noexcept;

// 1 when event `b` is wanted by subscription `a`: same name, letter by letter, and, unless `a` is
// for any state, the same state. Both are ot_ep_track_event.
int ot_ep_match(const void* a, const void* b);

// Copies `count` names of at most 32 characters to 48-byte entries at `destination`: from texts at
// steps of `stride`, or from the name fields of event records when `from_events` is not 0. Then
// calls the update callback. 0, or 12 for a null destination.
int ot_ep_copy_subscriptions(std::uint32_t count, const void* source, std::uint32_t stride,
                             std::uint32_t* out_name_size, std::uint32_t* out_state_size,
                             std::uint32_t from_events, void* destination);

}  // namespace ot
