// The life of a record in `tracks_table`, from its first configuration item to its release.

#include "state/track_record.h"

#include "core/debug.h"
#include "core/track_kind.h"
#include "platform/clock.h"
#include "platform/status.h"
#include "state/list_evaluation.h"
#include "state/timers.h"

namespace ot {
int new_track_record(const char* name, track_type type, track_state source_state, const char* who,
                     ot_track* ret) noexcept {
  ot_timer_ctx* ctx =
      new_timer_ctx(timer_kind::track_delay, name, static_cast<std::uint32_t>(source_state));
  wtm_leaf* timer = set_ot_delay_timer(ctx);
  if (timer == nullptr) {
    delete ctx;
    if (who != nullptr) {
      OT_TRACE_ERROR("(%s) : malloc() failed.", who);
    }
    return no_memory;
  }
  *ret = ot_track{};
  ret->name.assign(name);
  ret->type = type;
  ret->source_state = source_state;
  ret->delay_timer = timer;
  ret->seconds_last_change = clock_realtime_seconds();
  return status_ok;
}

int add_track_record(const ot_track& track, const char* who) noexcept {
  const int status = hash_db_add_new_item(tracks_table, track.name.c_str(), &track);
  if (status == status_ok) {
    // Lists would have learned from its expiry that the predecessor's state is no more.
    if (drop_outliving_timers(track.name.c_str())) {
      object_tracking_calc_tracks_state();
    }
    return status_ok;
  }
  ot_track lost = track;
  release_track_timers(lost);
  if (status == no_memory) {
    OT_TRACE_ERROR("(%s) : hash_db_add_new_item failed- no memory to add item ", who);
    drop_all_tracks();
  }
  return status;
}

void release_track_timers(ot_track& track) noexcept {
  release_ot_timer(track.delay_timer);
  release_ot_timer(track.poll_timer);
  track.delay_timer = nullptr;
  track.poll_timer = nullptr;
}

void release_object(ot_track& track) noexcept {
  const track_kind* kind = track_kind_of(track.type);
  if (kind != nullptr && kind->release_object != nullptr) {
    kind->release_object(track);
  }
}

void forget_object(ot_track& track) noexcept {
  release_object(track);
  track.object.zero();
}

void drop_all_tracks() noexcept {
  for (auto* track = hash_db_first_data<ot_track>(tracks_table); track != nullptr;
       track = hash_db_next_data<ot_track>(tracks_table)) {
    forget_object(*track);
    release_track_timers(*track);
  }
  hash_db_destroy(tracks_table);
}

void set_configured_type(const char* name, std::uint32_t type_number) noexcept {
  if (ot_track* track = hash_db_get_track_item(name)) {
    track->configured_type = type_number;
  }
}

}  // namespace ot
