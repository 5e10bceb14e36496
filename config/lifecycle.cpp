// Deleting a track. A delay that runs at that moment is left running: when it expires its state is
// still published, and the ledger item of the deleted track comes back, unless a track of that name
// was made anew meanwhile.

#include "config/lifecycle.h"

#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "config/configuration_tree.h"
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

bool is_configured(const char* name) {
  bool found = false;
  const std::string path = std::string{configuration_root + 1} + "track/" + name;
  ledger_item_walk(
      ledger_get_default_conn(), path.c_str(),
      [](void* context, std::string_view, const ledger_value&) {
        *static_cast<bool*>(context) = true;
        return false;
      },
      &found);
  return found;
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

int delete_states_without_track() noexcept {
  try {
    std::vector<std::string> stale;
    int status = ledger_item_walk(
        ledger_get_default_conn(), published_states_path + 1,
        [](void* context, std::string_view path, const ledger_value&) {
          std::string name{path.substr(path.rfind('/') + 1)};
          if (hash_db_get_track_item(name.c_str()) == nullptr && !is_configured(name.c_str())) {
            static_cast<std::vector<std::string>*>(context)->push_back(std::move(name));
          }
          return true;
        },
        &stale);
    for (const std::string& name : stale) {
      status = status == status_ok ? object_tracking_delete_item_from_ledger(name.c_str()) : status;
    }
    return status == no_memory ? no_memory : status_ok;
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
}

}  // namespace ot
