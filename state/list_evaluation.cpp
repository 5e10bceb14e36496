// The rules first: both compute from scratch each time, without a hysteresis band, and a value
// above a threshold list's up limit counts as down. A member that does not exist counts as down in
// a boolean list, and only adds to the count of a threshold list.
//
// Then the passes. Lists may contain lists, in any order of the table. A list waits in a pass while
// one of its list members is not computed yet, so a chain of lists needs at most as many passes as
// there are lists, and a cycle needs more than there are.

#include "state/list_evaluation.h"

#include <array>

#include "core/debug.h"
#include "core/track.h"
#include "core/track_kind.h"
#include "platform/status.h"
#include "state/publication.h"
#include "state/timers.h"

namespace ot {
namespace {

constexpr track_state undecided = track_state::unknown;

// Numbers the calculations from 1; 0 between them.
std::uint32_t calculation = 0;
std::uint32_t last_calculation = 0;

// While one lives, a member's track is looked up by name once and remembered: no track comes or
// goes during a calculation.
class list_calculation_scope {
 public:
  list_calculation_scope() noexcept {
    last_calculation += last_calculation == UINT32_MAX ? 2 : 1;  // 0 means none
    calculation = last_calculation;
  }
  ~list_calculation_scope() { calculation = 0; }
  list_calculation_scope(const list_calculation_scope&) = delete;
  list_calculation_scope& operator=(const list_calculation_scope&) = delete;
};

ot_track* track_of(list_member& member) noexcept {
  if (calculation == 0) {
    return hash_db_get_track_item(member.name.c_str());
  }
  if (member.found_in != calculation) {
    member.found_in = calculation;
    member.found = hash_db_get_track_item(member.name.c_str());
  }
  return member.found;
}

// Whether the list has to wait for this member.
bool waits_for(const ot_track* member) noexcept {
  return member != nullptr && is_list_type(member->type) && member->uncalculated == 1;
}

int finish(ot_track& list, std::uint32_t* done) noexcept {
  *done = 1;
  list.uncalculated = 0;
  return status_ok;
}

// Stores and publishes a changed source state; the list is computed unless that fails.
int conclude(ot_track& list, track_state result, const char* trace, std::uint32_t* done) {
  if (result != list.source_state) {
    list.source_state = result;
    if (trace != nullptr) {
      OT_TRACE_DETAIL(trace, list.name.c_str());
    }
    const int status = object_tracking_set_track_state_in_ledger(list.name.c_str(), result);
    if (status != status_ok) {
      return status;
    }
  }
  return finish(list, done);
}

// What one member decides for the whole list, or `undecided`.
track_state decision(track_type type, const list_member& member, const ot_track* track) noexcept {
  const bool up = track != nullptr && track->state == track_state::up;
  const bool counts_as_up = up != (member.value != 0);
  if (type == track_type::boolean_and) {
    return counts_as_up ? undecided : track_state::down;
  }
  return counts_as_up ? track_state::up : undecided;
}

// All members agree: "and" is up, "or" is down.
int conclude_undecided(ot_track& list, std::uint32_t* done) {
  const track_state agreed =
      list.type == track_type::boolean_and ? track_state::up : track_state::down;
  const track_state change = list.source_state == agreed ? undecided : agreed;
  OT_TRACE_DETAIL("computed state for track: %s is: %s", list.name.c_str(),
                  track_state_text(change));
  const int status = conclude(list, agreed, nullptr, done);
  if (status == status_ok) {
    OT_TRACE_DETAIL("EXIT  (%s)", "object_tracking_calc_bool_track_state");
  }
  return status;
}

bool threshold_reached(const ot_track& list, std::uint32_t sum, std::uint32_t count) noexcept {
  std::uint32_t value = sum;
  if (list.type == track_type::threshold_percentage) {
    value = static_cast<std::uint32_t>(static_cast<std::uint64_t>(sum * 100.0 / count));
  }
  return value <= list.threshold_up && value >= list.threshold_down;
}

// Marks every list as not computed; how many there are.
std::uint32_t mark_lists() noexcept {
  std::uint32_t lists = 0;
  for (auto* track = hash_db_first_data<ot_track>(tracks_table); track != nullptr;
       track = hash_db_next_data<ot_track>(tracks_table)) {
    track->uncalculated = is_list_type(track->type) ? 1 : 0;
    lists += track->uncalculated;
  }
  OT_TRACE_DETAIL("Timer_expired:Total tracks(list type): set to uncalced: %d",
                  static_cast<int>(lists));
  return lists;
}

// The rule of each type of list. A worst order of 1,500 lists asks a million times.
struct list_rules {
  std::array<int (*)(ot_track*, std::uint32_t*), 16> by_type{};

  list_rules() noexcept {
    for (const track_kind* kind : track_kinds()) {
      for (const track_kind_type& row : kind->types) {
        if (is_list_type(row.type)) {
          by_type[static_cast<std::size_t>(row.type)] = kind->calculate;
        }
      }
    }
  }
};

// Computes one list if it can be; its publication's result.
int compute(const list_rules& rules, ot_track& track, std::uint32_t& remaining) {
  OT_TRACE_DETAIL("Timer_expired:computin track: %s", track.name.c_str());
  std::uint32_t done = 0;
  const int status = rules.by_type[static_cast<std::size_t>(track.type)](&track, &done);
  if (status == status_ok && done == 1) {
    --remaining;
    OT_TRACE_DETAIL("Timer_expired: num uncalced: %d", static_cast<int>(remaining));
  }
  return status;
}

int make_pass(const list_rules& rules, std::uint32_t& remaining) {
  for (auto* track = hash_db_first_data<ot_track>(tracks_table); track != nullptr;
       track = hash_db_next_data<ot_track>(tracks_table)) {
    OT_TRACE_DETAIL("Timer_expired:For track: %s", track->name.c_str());
    if (!is_list_type(track->type) || track->uncalculated == 0) {
      OT_TRACE_DETAIL("Timer_expired:skipping track: %s", track->name.c_str());
      continue;
    }
    const int status = compute(rules, *track, remaining);
    if (status != status_ok) {
      return status;
    }
  }
  return status_ok;
}

}  // namespace

int object_tracking_calc_bool_track_state(ot_track* track, std::uint32_t* done) {
  *done = 0;
  OT_TRACE_DETAIL("CalcBTS: start point: %s", track->name.c_str());
  if (track->object.list.members == nullptr) {
    return conclude(*track, track_state::down, "CalcBTS: writing state for track: %s", done);
  }
  for (list_member* member = track->object.list.members; member != nullptr; member = member->next) {
    const ot_track* found = track_of(*member);
    OT_TRACE_DETAIL("CalcBTS: computing state for track: %s",
                    found == nullptr ? "not found" : found->name.c_str());
    if (waits_for(found)) {
      OT_TRACE_DETAIL("CalcBTS: skipping this item: %s", member->name.c_str());
      return status_ok;
    }
    const track_state result = decision(track->type, *member, found);
    OT_TRACE_DETAIL("CalcBTS: computed state for track: %s is: %s", member->name.c_str(),
                    track_state_text(result));
    if (result != undecided) {
      return conclude(*track, result, "CalcBTS: writing computed state for track: %s", done);
    }
  }
  return conclude_undecided(*track, done);
}

int object_tracking_calc_thld_track_state(ot_track* track, std::uint32_t* done) {
  *done = 0;
  if (track->object.list.members == nullptr) {
    return conclude(*track, track_state::down, "writing state for track: %s", done);
  }
  std::uint32_t sum = 0;
  std::uint32_t count = 0;
  for (list_member* member = track->object.list.members; member != nullptr; member = member->next) {
    const ot_track* found = track_of(*member);
    if (waits_for(found)) {
      OT_TRACE_DETAIL("thld: skipping this item: %s", member->name.c_str());
      return status_ok;
    }
    if (found != nullptr) {
      OT_TRACE_DETAIL("thld:computing state for track:%s, state is %s", found->name.c_str(),
                      track_state_text(found->source_state));
      sum += found->source_state == track_state::up ? member->value : 0;
    }
    ++count;
  }
  OT_TRACE_DETAIL("thld: weighted sum is %d", static_cast<int>(sum));
  const track_state result =
      threshold_reached(*track, sum, count) ? track_state::up : track_state::down;
  return conclude(*track, result, nullptr, done);
}

void object_tracking_calc_tracks_state() {
  OT_TRACE_ENTRY();
  set_ot_wait_timer(tracks_calc_timer);
}

void object_tracking_calc_tracks_state_after_timer_expired() {
  OT_TRACE_ENTRY();
  const list_calculation_scope scope;
  const list_rules rules;
  std::uint32_t remaining = mark_lists();
  std::uint32_t max_loop = remaining;
  while (max_loop != 0 && remaining != 0) {
    if (make_pass(rules, remaining) != status_ok) {
      return;
    }
    --max_loop;
    OT_TRACE_DETAIL("Timer_expired: max_loop: %d", static_cast<int>(max_loop));
  }
  OT_TRACE_DETAIL("Timer_expired: After Initial max_loop: %d", static_cast<int>(max_loop));
  // What is left is in a cycle or behind one. It keeps its states and nothing is published for it.
}

}  // namespace ot
