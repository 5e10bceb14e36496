// What a record says of a track. Both kinds of record begin with the same fields; what a track
// follows stands in the row of its kind.

#include "oper/records/build.h"

#include "core/debug.h"
#include "core/track.h"
#include "core/track_kind.h"
#include "oper/records/tracking_interfaces.h"
#include "platform/status.h"
#include "state/timers.h"

namespace ot {
namespace {

template <typename Record>
void fill_common(const ot_track& track, Record& record) noexcept {
  record.TrackeName.assign(track.name.view());
  record.Type = track.type;
  record.TrackState = track.state == track_state::up;
  record.TrackTypeInfo.discriminant = static_cast<std::uint32_t>(track_type::none);
  const track_kind* kind = track_kind_of(track.type);
  if (kind != nullptr && kind->fill_object != nullptr) {
    record.TrackTypeInfo.discriminant = static_cast<std::uint32_t>(track.type);
    kind->fill_object(track, record.TrackTypeInfo);
  }
}

int fill_detail(const ot_track& track, track_info__& record) noexcept {
  const track_kind* kind = track_kind_of(track.type);
  return kind == nullptr || kind->fill_detail == nullptr ? status_ok
                                                         : kind->fill_detail(track, record);
}

// A delay that will change nothing a reader sees is not shown: the same state again, or down after
// unknown.
bool delay_is_shown(track_state published, track_state waiting) noexcept {
  return waiting != published &&
         !(published == track_state::unknown && waiting == track_state::down);
}

int fill_delay(const ot_track& track, track_info__& record) noexcept {
  if (track.delay_timer == nullptr || !wtm_timer_leaf_running(track.delay_timer)) {
    return status_ok;
  }
  const ot_timer_ctx* ctx = get_timer_ctx(track.delay_timer);
  if (ctx == nullptr) {
    return status_ok;
  }
  const auto waiting = static_cast<track_state>(ctx->value);
  if (!delay_is_shown(track.state, waiting)) {
    return status_ok;
  }
  record.Delayed = brec_alloc<delayed_state_status__>();
  if (record.Delayed == nullptr) {
    return no_memory;
  }
  record.Delayed->TimeRemaining = wtm_timer_leaf_remaining(track.delay_timer);
  record.Delayed->TrackState = waiting == track_state::up;
  return status_ok;
}

}  // namespace

int ot_fill_intf_tracking_info(const ot_track& track, track_info__& record) noexcept {
  OT_TRACE_ENTRY();
  interface_tracking_info__** end = &record.TrackingInteraces;
  const auto append = [](void* context, std::string_view interface) {
    auto& last = *static_cast<interface_tracking_info__***>(context);
    auto* info = brec_alloc<interface_tracking_info__>();
    if (info == nullptr) {
      return no_memory;
    }
    info->InterfaceName.assign(interface);
    *last = info;
    last = &info->next;
    return status_ok;
  };
  const int status = visit_tracking_interfaces(track.name.view(), append, &end);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : malloc failed", __func__);
  }
  return status;
}

int ot_fill_track_info(const ot_track& track, track_info__& record) noexcept {
  OT_TRACE_ENTRY();
  fill_common(track, record);
  record.StateChangeCounter = track.state_change_counter;
  record.SecondsLastChange = static_cast<std::uint64_t>(track.seconds_last_change);
  for (const auto fill : {fill_detail, fill_delay, ot_fill_intf_tracking_info}) {
    const int status = fill(track, record);
    if (status != status_ok) {
      return status;
    }
  }
  return status_ok;
}

int ot_fill_track_info_brief(const ot_track& track, track_info_brief__& record) noexcept {
  OT_TRACE_ENTRY();
  fill_common(track, record);
  return status_ok;
}

}  // namespace ot
