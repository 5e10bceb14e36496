// The apply side of the two delay items, one mechanism for both directions.

#include "config/delays.h"

#include "core/debug.h"
#include "core/track.h"
#include "core/track_kind.h"
#include "platform/err_string.h"
#include "platform/status.h"
#include "state/ledger_state.h"
#include "state/track_record.h"

namespace ot {
namespace {

std::uint16_t delay_of(const ot_track& track, int delay) noexcept {
  const track_kind* kind = track_kind_of(track.type);
  return delay == 0 && kind != nullptr ? kind->least_delay : static_cast<std::uint16_t>(delay);
}

struct direction {
  const char* apply_name;
  const char* label;
  int (*set)(const char* name, int delay, bool create) noexcept;
};

int set_up(const char* name, int delay, bool create) noexcept {
  return object_tracking_set_create_track_delay(name, delay, keep_delay, create);
}
int set_down(const char* name, int delay, bool create) noexcept {
  return object_tracking_set_create_track_delay(name, keep_delay, delay, create);
}

constexpr direction up = {"object_tracking_delay_up_apply", "up", set_up};
constexpr direction down = {"object_tracking_delay_down_apply", "down", set_down};

int apply_delay(const direction& way, const ledger_change& change) {
  OT_TRACE_DETAIL("Entering (%s) : ", way.apply_name);
  const ledger_path_field* name = change.field(0);
  if (name == nullptr) {
    return invalid_argument;
  }
  int status = status_ok;
  if ((change.event & (ledger_event_create | ledger_event_set)) != 0 &&
      change.new_value != nullptr) {
    // The field is 16 bits wide: a larger value wraps.
    const auto delay = static_cast<std::uint16_t>(change.new_value->as_u32());
    OT_TRACE_DETAIL("(%s) :track_name %s, delay %s %d", way.apply_name, name->text, way.label,
                    delay);
    OT_TRACE_DETAIL("(%s) :LEDGER_EVENT_CREATE or LEDGER_EVENT_SET", way.apply_name);
    status = way.set(name->text, delay, true);
  } else if ((change.event & ledger_event_delete) != 0) {
    OT_TRACE_DETAIL("(%s) :LEDGER_EVENT_DELETE", way.apply_name);
    status = way.set(name->text, 0, false);
  }
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : object_tracking_set_create_track_delay failed - %s", way.apply_name,
                   err_string(status));
  }
  return status;
}

}  // namespace

int object_tracking_delay_up_apply(const ledger_change& change) {
  return apply_delay(up, change);
}

int object_tracking_delay_down_apply(const ledger_change& change) {
  return apply_delay(down, change);
}

int object_tracking_set_create_track_delay(const char* name, int delay_up, int delay_down,
                                           bool create) noexcept {
  OT_TRACE_ENTRY();
  OT_TRACE_DETAIL("(%s) track %s:", __func__, name);
  if (ot_track* track = hash_db_get_track_item(name)) {
    if (delay_down != keep_delay) {
      track->delay_down = delay_of(*track, delay_down);
    }
    if (delay_up != keep_delay) {
      track->delay_up = delay_of(*track, delay_up);
    }
    return status_ok;
  }
  if (!create) {
    return status_ok;
  }
  ot_track track;
  const int status =
      new_track_record(name, track_type::none, track_state::unknown, __func__, &track);
  if (status != status_ok) {
    return status;
  }
  take_over_published_state(
      track);  // a restart may apply its type later, when its service is there
  track.delay_up = delay_up == keep_delay ? 0 : static_cast<std::uint16_t>(delay_up);
  track.delay_down = delay_down == keep_delay ? 0 : static_cast<std::uint16_t>(delay_down);
  return add_track_record(track, __func__);
}

}  // namespace ot
