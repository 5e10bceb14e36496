// Who wants which event: the subscribers' filters, kept sorted by track name, so that publishing
// costs a search however many there are. The publisher's match function has the final say.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "platform/event_publisher.h"

namespace ot {

// Subscribers are numbered from 0; a set of them is a bit for each.
using event_subscribers = std::uint64_t;
inline constexpr unsigned event_subscriber_limit = 64;

class event_filters {
 public:
  // Enters subscriber `number`, which has no filters yet. Without filters it wants everything. 0 or
  // 12 (nothing entered).
  int add(unsigned number, std::span<const evdl_track_record> filters) noexcept;
  void remove(unsigned number) noexcept;

  // Those who want `event`, each once.
  [[nodiscard]] event_subscribers wanted_by(const evdl_track_record& event,
                                            evdl_match_func match) const noexcept;

 private:
  struct filter {
    evdl_track_record record;
    unsigned subscriber;
  };

  static std::string_view name_of(const filter& one) noexcept;

  std::vector<filter> filters_;  // by name
  event_subscribers everything_ = 0;
};

}  // namespace ot
