// The filters of all subscribers in one sorted run. Subscriptions are rare and events are not, so
// the work is in the former.
#include "platform/common/event_filters.h"

#include <algorithm>
#include <cerrno>
#include <new>

#include "platform/status.h"

namespace ot {
std::string_view event_filters::name_of(const filter& one) noexcept {
  return one.record.name.view();
}

int event_filters::add(unsigned number, std::span<const evdl_track_record> filters) noexcept {
  if (filters.empty()) {
    everything_.add(number);
    return status_ok;
  }
  if (filters.size() > event_filters_total - filters_.size()) {
    return EUSERS;
  }
  try {
    filters_.reserve(filters_.size() + filters.size());
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
  const auto known = static_cast<std::ptrdiff_t>(filters_.size());
  for (const evdl_track_record& record : filters) {
    filters_.push_back({record, number});
  }
  const auto added = filters_.begin() + known;
  std::ranges::sort(added, filters_.end(), {}, name_of);
  std::ranges::inplace_merge(filters_.begin(), added, filters_.end(), {}, name_of);
  return status_ok;
}

void event_filters::remove(unsigned number) noexcept {
  everything_.remove(number);
  std::erase_if(filters_, [number](const filter& one) { return one.subscriber == number; });
}

event_subscribers event_filters::wanted_by(const evdl_track_record& event,
                                           evdl_match_func match) const noexcept {
  event_subscribers wanted = everything_;
  const std::string_view name = event.name.view();
  auto at = std::ranges::lower_bound(filters_, name, {}, name_of);
  for (; at != filters_.end() && name_of(*at) == name; ++at) {
    if (!wanted.contains(at->subscriber) && match(&at->record, &event) == 1) {
      wanted.add(at->subscriber);
    }
  }
  return wanted;
}

}  // namespace ot
