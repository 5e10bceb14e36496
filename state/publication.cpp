// Publication of track states. A source's report either goes out at once or waits in the context of
// the track's delay timer; that context is the only memory of a pending change.

#include "state/publication.h"

#include <cstdio>
#include <cstring>

#include "core/debug.h"
#include "core/track.h"
#include "oper/outlets/events.h"
#include "oper/outlets/notifications.h"
#include "platform/clock.h"
#include "platform/err_string.h"
#include "platform/status.h"
#include "state/history.h"
#include "state/ledger_state.h"
#include "state/list_evaluation.h"
#include "state/timers.h"

namespace ot {
namespace {

constexpr const char* entry_name = "object_tracking_set_track_state_in_ledger";

// For fields of the log.
const char* state_word(track_state state) noexcept {
  return state == track_state::up ? "up" : state == track_state::down ? "down" : "unknown";
}

bool is_up(track_state state) noexcept {
  return state == track_state::up;
}

// The delay that holds a change to `state` back; unknown counts as down.
std::uint16_t delay_for(const ot_track& track, track_state state) noexcept {
  return is_up(state) ? track.delay_up : track.delay_down;
}

int publish_at_once(ot_track& track, const char* name, track_state state) {
  ot_timer_ctx* ctx = get_timer_ctx(track.delay_timer);
  if (ctx != nullptr && ctx->value != static_cast<std::uint32_t>(state)) {
    ctx->value = static_cast<std::uint32_t>(state);
  }
  stop_ot_timer(track.delay_timer);
  return object_tracking_set_track_state_in_ledger_after_timer_expired(name, state);
}

// The timer's context, made to carry the pending `state`; null without memory.
ot_timer_ctx* pending_context(const ot_track& track, ot_timer_ctx* ctx,
                              track_state state) noexcept {
  if (ctx == nullptr) {
    ctx = new_timer_ctx(timer_kind::track_delay, track.name.c_str(), 0);
    if (ctx == nullptr) {
      OT_TRACE_ERROR("(%s) : malloc() failed.", entry_name);
      return nullptr;
    }
    wtm_timer_leaf_set_context(track.delay_timer, ctx);
  }
  // A context that carries a pending change counts as kind 1; the leaf keeps its own kind.
  ctx->type = static_cast<std::uint32_t>(timer_kind::list_calculation);
  ctx->name = track.name;
  ctx->value = static_cast<std::uint32_t>(state);
  return ctx;
}

int start_delay(ot_track& track, track_state state) {
  if (track.delay_up == 0 && track.delay_down == 0) {
    OT_TRACE_ERROR("(%s) : track %s delays are zeroed.", entry_name, track.name.c_str());
    return invalid_argument;
  }
  if (track.delay_timer == nullptr) {
    OT_TRACE_ERROR("(%s) : delay_timer is NULL.", entry_name);
    return invalid_argument;
  }
  ot_timer_ctx* ctx = get_timer_ctx(track.delay_timer);
  const int track_value = static_cast<int>(track.state);
  if (ctx != nullptr && ctx->value == static_cast<std::uint32_t>(state) &&
      wtm_timer_leaf_running(track.delay_timer)) {
    OT_TRACE_DETAIL("Let the timer expire. ctx->state = %d,track_state = %d",
                    static_cast<int>(ctx->value), track_value);
    return status_ok;
  }
  OT_TRACE_DETAIL("Timer state and update state are different");
  OT_TRACE_DETAIL("ctx->state = %d, track_state = %d",
                  ctx == nullptr ? -1 : static_cast<int>(ctx->value), track_value);
  stop_ot_timer(track.delay_timer);
  ctx = pending_context(track, ctx, state);
  if (ctx == nullptr) {
    return no_memory;
  }
  // Back at the published state: stopping the timer has cancelled the change.
  if (state > track_state::down || state == track.state) {
    return status_ok;
  }
  set_ot_wait_delay_timer(track.delay_timer, delay_for(track, state), ctx);
  return status_ok;
}

// A new track on an interface that is not there begins as down, which nobody is told.
bool begins_unknown(const ot_track& track, track_state state) noexcept {
  return track.state_change_counter == 0 && track.state == track_state::down &&
         state == track_state::unknown;
}

void update_record(ot_track& track, track_state state, const char* text) noexcept {
  if (state != track.state) {
    const errmsg_field fields[] = {{"OT_TRACK", track.name.c_str()},
                                   {"OT_STATE", state_word(state)},
                                   {"OT_PREVIOUS", state_word(track.state)}};
    errmsg_log_fields(&kor_msg_rec_ot_track_info, kor_msg_rec_ot_track_info.severity, fields, text);
  }
  if (state != track.state && !begins_unknown(track, state)) {
    note_state_change(track.name, track.state, state, clock_boottime_milliseconds());
  }
  track.state = state;
  track.seconds_last_change = clock_realtime_seconds();
  ++track.state_change_counter;
}

int publish_outside(const char* name, track_state state) {
  const int status = ledger_write_track_state(name, state);
  OT_dpv_queue_notification(name, static_cast<std::uint32_t>(state), 0);
  ot_ep_track_event event;
  event.name_length = static_cast<std::uint32_t>(std::strlen(name));
  event.name.assign(name);
  event.state = static_cast<std::uint32_t>(state);
  ot_ep_publish(&event, 1);
  return status;
}

// The context that says what an expired delay has to publish, or null.
const ot_timer_ctx* pending_change(const ot_timer_ctx& ctx) noexcept {
  if (ctx.value != pending_of_track) {
    return &ctx;
  }
  const ot_track* track = hash_db_get_track_item(ctx.name.c_str());
  return track == nullptr ? nullptr : get_timer_ctx(track->delay_timer);
}

}  // namespace

void publish_after_delay(const ot_timer_ctx& ctx) {
  const ot_timer_ctx* pending = pending_change(ctx);
  if (pending == nullptr) {
    return;
  }
  const change_cause_scope cause(change_cause::delay);
  const int status = object_tracking_set_track_state_in_ledger_after_timer_expired(
      ctx.name.c_str(), static_cast<track_state>(pending->value));
  if (status != status_ok) {
    OT_TRACE_ERROR(
        "(%s) : object_tracking_set_track_state_in_ledger_after_timer_expired failed- %s",
        "handle_ot_wtm_timer_expired", err_string(status));
  }
}

int object_tracking_set_track_state_in_ledger(const char* name, track_state state) {
  OT_TRACE_DETAIL("(%s) : track %s state %s", __func__, name, track_state_text(state));
  ot_track* track = hash_db_get_track_item(name);
  if (track == nullptr) {
    OT_TRACE_DETAIL("(%s) : track %s doesn't exist", __func__, name);
    return status_ok;
  }
  OT_TRACE_DETAIL("(%s) : track %s ledger state %s", __func__, name,
                  track_state_text(track->state));
  if (state == track->state && track->delay_up == 0 && track->delay_down == 0) {
    // A delay that was taken away while it ran must not publish what is over.
    if (track->delay_timer != nullptr && wtm_timer_leaf_running(track->delay_timer)) {
      stop_ot_timer(track->delay_timer);
    }
    return status_ok;
  }
  return delay_for(*track, state) == 0 ? publish_at_once(*track, name, state)
                                       : start_delay(*track, state);
}

int withdraw_up_state(ot_track& track) {
  if (track.source_state != track_state::up) {
    return status_ok;
  }
  track.source_state = track_state::unknown;
  return object_tracking_set_track_state_in_ledger(track.name.c_str(), track_state::unknown);
}

int object_tracking_set_track_state_in_ledger_after_timer_expired(const char* name,
                                                                  track_state state) {
  char text[128];
  std::snprintf(text, sizeof text, "track %s state %s", name, track_state_text(state));
  OT_TRACE_DETAIL("(%s) : %s", __func__, text);
  ot_track* track = hash_db_get_track_item(name);
  if (track != nullptr) {
    update_record(*track, state, text);
  }
  const int status = is_bound_ot_ha_ledger ? publish_outside(name, state) : status_ok;
  object_tracking_calc_tracks_state();
  return status;
}

}  // namespace ot
