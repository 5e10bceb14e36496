// evdl_: publishing events to whoever subscribed, the event policy runner first among them. The
// publisher supplies how its records match; the platform keeps the subscribers and carries the
// records. Main thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/evm.h"
#include "platform/fixed_text.h"

namespace ot {

struct evdl_publisher;

// 1 when event `event` is wanted by subscription `subscription`; both in the publisher's source
// record layout.
using evdl_match_func = int (*)(const void* subscription, const void* event);

// Copies `count` subscriptions into the publisher's entries at `destination`.
using evdl_copy_func = int (*)(std::uint32_t count, const void* source, std::uint32_t stride,
                               std::uint32_t* out_name_size, std::uint32_t* out_state_size,
                               std::uint32_t from_events, void* destination);

struct evdl_event_kind {
  evdl_copy_func copy_subscriptions = nullptr;
  evdl_match_func match = nullptr;
  void* reserved1 = nullptr;
  void* reserved2 = nullptr;
  std::uint32_t type = 0;
  fixed_text<48> name;
  std::uint16_t subscription_size = 0;  // bytes of one entry given to copy_subscriptions
};

struct evdl_registration {
  fixed_text<32> publisher;
  std::uint32_t kind_count = 0;
  evdl_event_kind kind;
};

// One subscription as it comes from a subscriber; the platform's own layout is the source record of
// the track events (name length, any-state flag, name, state).
struct evdl_track_record {
  std::uint32_t name_length = 0;
  std::uint32_t any_state = 0;  // non-zero: the state need not match
  fixed_text<32> name;
  std::uint32_t state = 0;
};
static_assert(sizeof(evdl_track_record) == 44);

// Registers a publisher; the platform copies the record. Fills `ret` on success. Status code.
int evdl_publisher_register(evm* manager, const evdl_registration& registration,
                            evdl_publisher** ret, std::uint32_t version) noexcept;

// Publishes `count` events: the source records go to the match function, the published records to
// the subscribers. Events leave in order, at the latest when the running handler has returned.
// A subscriber that does not read is cut off. Status code.
int evdl_event_publish(evdl_publisher* publisher, std::uint32_t type, std::uint32_t count,
                       std::size_t source_size, const void* source, std::size_t published_size,
                       const void* published) noexcept;

}  // namespace ot
