// Deleting a track. A delay that runs at that moment is left running: when it expires its state is
// still published, and the ledger item of the deleted track comes back.

#include "config/lifecycle.h"

#include <array>

#include "config/track_record.h"
#include "core/debug.h"
#include "core/track.h"
#include "lists/boolean_list.h"
#include "lists/threshold_list.h"
#include "platform/status.h"
#include "sources/bfd/track.h"
#include "sources/interface/track.h"
#include "sources/probe/track.h"
#include "sources/route/track.h"
#include "state/ledger_state.h"

namespace ot {
namespace {

int detach_interface(ot_track& track) {
  return delete_track_from_interface_entry(track.object.interface.name.c_str(), track.name.c_str());
}

// How a track of each type lets go of what it follows. Types that this build has no source for
// cannot have tracks, and have no row.
struct teardown_row {
  track_type type;
  int (*detach)(ot_track& track);
  void (*trace_failure)(const char* error);
};

constexpr const char* delete_name = "object_tracking_track_delete";

void trace_interface_failure(const char* error) {
  OT_TRACE_ERROR("(%s) :delete_track_from_interface_entry failed - %s", delete_name, error);
}

void trace_route_failure(const char* error) {
  OT_TRACE_ERROR("(%s) : delete_track_from_route_entry failed - %s", delete_name, error);
}

void trace_probe_failure(const char* error) {
  OT_TRACE_ERROR("(%s) : delete_track_from_prb_entry failed - %s", delete_name, error);
}

void trace_bfd_failure(const char* error) {
  OT_TRACE_ERROR("(%s) : object_tracking_type_bfdprb_delete failed - %s", delete_name, error);
}

void trace_boolean_failure(const char* error) {
  OT_TRACE_ERROR("(%s) : object_tracking_delete_track_bool_objects failed - %s", delete_name,
                 error);
}

void trace_threshold_failure(const char* error) {
  OT_TRACE_ERROR("(%s) : Delete object from track: failed - %s", delete_name, error);
}

int detach_route(ot_track& track) {
  return delete_track_from_route_entry(track.name.c_str());
}
int detach_probe(ot_track& track) {
  OT_TRACE_DETAIL(" Found track_type : PRB. for track name %s  Delete this track from prb entry",
                  track.name.c_str());
  return delete_track_from_prb_entry(track.name.c_str());
}
int detach_bfd(ot_track& track) {
  OT_TRACE_DETAIL(
      " Found track_type : BFD_PRB. for track name %s  Delete this track from bfdprb entry",
      track.name.c_str());
  return object_tracking_type_bfdprb_delete(track.name.c_str());
}
int detach_boolean(ot_track& track) {
  return object_tracking_delete_track_bool_objects(&track);
}
int detach_threshold(ot_track& track) {
  return ot_thld_del_track_objects(&track);
}

constexpr std::array<teardown_row, 8> teardowns = {{
    {track_type::interface, detach_interface, trace_interface_failure},
    {track_type::route, detach_route, trace_route_failure},
    {track_type::probe, detach_probe, trace_probe_failure},
    {track_type::bfd, detach_bfd, trace_bfd_failure},
    {track_type::boolean_and, detach_boolean, trace_boolean_failure},
    {track_type::boolean_or, detach_boolean, trace_boolean_failure},
    {track_type::threshold_weight, detach_threshold, trace_threshold_failure},
    {track_type::threshold_percentage, detach_threshold, trace_threshold_failure},
}};

const teardown_row* teardown_of(track_type type) noexcept {
  for (const teardown_row& row : teardowns) {
    if (row.type == type) {
      return &row;
    }
  }
  return nullptr;
}

int detach(ot_track& track) {
  const teardown_row* row = teardown_of(track.type);
  if (row == nullptr) {
    return status_ok;
  }
  const int status = row->detach(track);
  if (status != status_ok) {
    row->trace_failure(err_string(status));
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
  const bool had_type = teardown_of(track->type) != nullptr;
  int status = detach(*track);
  if (status != status_ok) {
    return status;
  }
  status = remove_record(name);
  if (status != status_ok) {
    return status;
  }
  if (!had_type) {
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
