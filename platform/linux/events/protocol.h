// What goes over the publisher's socket: sequenced packets, in the machine's own byte order. The
// subscriber sends one subscription, gets one answer, and from then on packets of whole events.
#pragma once

#include <cstdint>

#include "platform/event_publisher.h"
#include "platform/fixed_text.h"

namespace ot {

inline constexpr const char* event_socket_path = "/run/object_tracking/events.sock";

inline constexpr std::uint32_t event_protocol_version = 1;
inline constexpr std::uint32_t event_filter_limit = 2048;

// The head of a subscription; `count` records of evdl_track_record follow in the same packet.
struct event_subscription_head {
  std::uint32_t version = event_protocol_version;
  std::uint32_t count = 0;
};

// The answer: 0, or why there is no subscription.
struct event_subscription_answer {
  std::int32_t status = 0;
};

// One event.
struct event_packet_record {
  fixed_text<32> name;
  std::uint32_t state = 0;
};
static_assert(sizeof(event_packet_record) == 36);

// Names that came over the socket are read only after this: bytes of a stranger have no terminator.
template <std::size_t N>
void terminate(fixed_text<N>& received) noexcept {
  reinterpret_cast<char*>(&received)[N - 1] = '\0';
}

// As many events as one packet carries at most.
inline constexpr std::size_t event_packet_limit = 1700;

}  // namespace ot
