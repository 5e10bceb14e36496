// The rules: both compute from scratch each time, without a hysteresis band, and a value above a
// threshold list's up limit counts as down. A member that does not exist counts as down in a
// boolean list, and only adds to the count of a threshold list.

#include "state/list_evaluation.h"

#include "core/debug.h"
#include "core/track.h"
#include "platform/status.h"
#include "state/history.h"
#include "state/list_passes.h"
#include "state/publication.h"
#include "state/timers.h"

namespace ot {
namespace {

constexpr track_state undecided = track_state::unknown;

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
    const change_cause_scope cause(change_cause::list);
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

}  // namespace

int object_tracking_calc_bool_track_state(ot_track* track, std::uint32_t* done) {
  *done = 0;
  OT_TRACE_DETAIL("CalcBTS: start point: %s", track->name.c_str());
  if (track->object.list.members == nullptr) {
    return conclude(*track, track_state::down, "CalcBTS: writing state for track: %s", done);
  }
  for (members_to_judge each(*track); !each.over(); each.next()) {
    const list_member& member = each.member();
    const ot_track* found = each.track();
    OT_TRACE_DETAIL("CalcBTS: computing state for track: %s",
                    found == nullptr ? "not found" : found->name.c_str());
    if (waits_for(found)) {
      OT_TRACE_DETAIL("CalcBTS: skipping this item: %s", member.name.c_str());
      each.wait();
      return status_ok;
    }
    const track_state result = decision(track->type, member, found);
    OT_TRACE_DETAIL("CalcBTS: computed state for track: %s is: %s", member.name.c_str(),
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
  list_progress& so_far = track->progress;
  for (members_to_judge each(*track); !each.over(); each.next()) {
    const list_member& member = each.member();
    const ot_track* found = each.track();
    if (waits_for(found)) {
      OT_TRACE_DETAIL("thld: skipping this item: %s", member.name.c_str());
      each.wait();
      return status_ok;
    }
    if (found != nullptr) {
      OT_TRACE_DETAIL("thld:computing state for track:%s, state is %s", found->name.c_str(),
                      track_state_text(found->source_state));
      so_far.sum += found->source_state == track_state::up ? member.value : 0;
    }
    ++so_far.count;
  }
  OT_TRACE_DETAIL("thld: weighted sum is %d", static_cast<int>(so_far.sum));
  const track_state result =
      threshold_reached(*track, so_far.sum, so_far.count) ? track_state::up : track_state::down;
  return conclude(*track, result, nullptr, done);
}

void object_tracking_calc_tracks_state() {
  OT_TRACE_ENTRY();
  set_ot_wait_timer(tracks_calc_timer);
}

}  // namespace ot
