// The last changes of published states: when, of which track, from what to what, and what made the
// service publish them. A ring of fixed size in memory that is touched as it fills; it begins anew
// with each start of the service. Main thread.
#pragma once

#include <cstdint>

#include "core/track_type.h"

namespace ot {

enum class change_cause : std::uint8_t {
  object = 0,         // what the track follows has changed
  delay = 1,          // a delay has run out
  list = 2,           // the list was computed
  configuration = 3,  // a commit was applied
  restart = 4,        // the service has started with this configuration
};

struct state_change {
  std::int64_t when_ms = 0;  // since boot
  track_name track;
  std::uint8_t from = 0;  // as track_state counts
  std::uint8_t to = 0;
  change_cause cause = change_cause::object;
};
static_assert(sizeof(state_change) == 56);

inline constexpr std::uint32_t history_size = 4096;

// Changes are numbered from 1 on. Those from `first` to `last` are kept; none while last < first.
struct history_extent {
  std::uint64_t first = 1;
  std::uint64_t last = 0;
  std::int64_t since_ms = 0;  // since boot: when the history began
};

// The history begins, empty, now.
void forget_history() noexcept;

// Keeps a change, in place of the oldest when all room is taken. Its cause is what the innermost
// scope says, else the configuration's change that is being applied, else the object.
void note_state_change(const track_name& track, track_state from, track_state to,
                       std::int64_t when_ms) noexcept;

history_extent state_history() noexcept;

// `number` is within the extent. Valid until the next change.
const state_change& state_change_at(std::uint64_t number) noexcept;

// While it lives, changes have this cause.
class change_cause_scope {
 public:
  explicit change_cause_scope(change_cause cause) noexcept;
  ~change_cause_scope();
  change_cause_scope(const change_cause_scope&) = delete;
  change_cause_scope& operator=(const change_cause_scope&) = delete;

 private:
  change_cause outer_;
};

}  // namespace ot
