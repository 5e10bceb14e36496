// Deleting a track. A delay that runs at that moment is left running: when it expires its state is
// still published, and the ledger item of the deleted track comes back.

#include "config/lifecycle.h"

#include "core/debug.h"
#include "core/track.h"
#include "core/track_kind.h"
#include "platform/err_string.h"
#include "platform/status.h"
#include "state/ledger_state.h"
#include "state/track_record.h"

namespace ot {
namespace {

constexpr const char* delete_name = "object_tracking_track_delete";

int detach(const track_kind& kind, ot_track& track) {
  const int status = kind.detach(track);
  if (status != status_ok) {
    OT_TRACE_ERROR(kind.detach_failed, delete_name, err_string(status));
  }
  return status;
}

// The record goes first, then its timers: releasing them needs nothing of the table.
int remove_record(const char* name) noexcept {
  ot_track* track = hash_db_get_track_item(name);
  ot_track removed = *track;
  if (hash_db_delete(tracks_table, name) != status_ok) {
    OT_TRACE_ERROR("(%s) : failed to delete track %s from hash ", delete_name, name);
    return no_memory;
  }
  release_track_timers(removed);
  return status_ok;
}

}  // namespace

int object_tracking_track_apply(const ledger_change& change) {
  OT_TRACE_ENTRY();
  if ((change.event & ledger_event_delete) == 0) {
    return status_ok;
  }
  const ledger_path_field* name = change.field(0);
  if (name == nullptr) {
    return invalid_argument;
  }
  OT_TRACE_DETAIL("(%s) : track %s, LEDGER_EVENT_DELETE", __func__, name->text);
  const int status = object_tracking_track_delete(name->text);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : object_tracking_track_delete failed - %s", __func__, err_string(status));
  }
  return status;
}

int object_tracking_track_delete(const char* name) {
  OT_TRACE_ENTRY();
  ot_track* track = hash_db_get_track_item(name);
  if (track == nullptr) {
    return status_ok;
  }
  OT_TRACE_DETAIL(" Found a entry for the track ");
  const track_kind* kind = track_kind_of(track->type);
  int status = kind == nullptr ? status_ok : detach(*kind, *track);
  if (status != status_ok) {
    return status;
  }
  status = remove_record(name);
  if (status != status_ok) {
    return status;
  }
  if (kind == nullptr) {
    OT_TRACE_DETAIL(" track_type : Default.");
  }
  status = object_tracking_delete_item_from_ledger(name);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : object_tracking_delete_item_from_ledger failed - %s", __func__,
                   err_string(status));
  }
  return status;
}

}  // namespace ot
