// Verifying and applying the operation of a probe track.

#include "config/expected_tracks.h"
#include "config/verifiers.h"
#include "platform/component_status.h"
#include "sources/config_item.h"
#include "sources/probe/statistics.h"
#include "sources/probe/table.h"
#include "sources/probe/track.h"

namespace ot {
namespace {

constexpr const char* apply_name = "object_tracking_type_prb_apply";

std::int32_t op_id_of(const ledger_value* value) noexcept {
  return value == nullptr ? 0 : static_cast<std::int32_t>(value->as_u32());
}

// Whether a track follows the operation, or will when the stages accepted so far are applied.
bool is_taken(std::int32_t op_id) noexcept {
  if (expects_operation(op_id)) {
    return true;
  }
  const prb_entry* entry = hash_db_get_prb_item(op_id);
  if (entry == nullptr) {
    return false;
  }
  for (const track_name_node* node = entry->tracks; node != nullptr; node = node->next) {
    const expected_track* track = find_expected_track(node->name.c_str());
    if (track == nullptr || track->keeps_object) {
      return true;
    }
  }
  return entry->tracks == nullptr;
}

int refuse_taken(ledger_verdict& verdict) noexcept {
  OT_TRACE_ERROR(" Multiple tracker case ");
  report_configuration_error(probe_operation_taken);
  return refuse(probe_operation_taken, verdict);
}

using probe_item = item_change<std::int32_t>;

std::optional<std::int32_t> op_id_in(const ledger_value* value) noexcept {
  return value == nullptr ? std::nullopt : std::optional{op_id_of(value)};
}

int create(probe_item& item) {
  const int status = object_tracking_type_prb_create(item.track(), item.after.value_or(0));
  remember_type(item.change);
  return traced(apply_name, "object_tracking_type_prb_create", status);
}

int remove(probe_item& item) {
  return item.before ? traced(apply_name, "delete_track_from_prb_entry",
                              object_tracking_type_prb_delete(item.track()))
                     : status_ok;
}

// A set that brings no operation changes nothing.
int set(probe_item& item) {
  return item.after ? replace_item(item, apply_name, remove, create) : status_ok;
}

// The events are traced as errors.
constexpr const char* event_format = "(%s) :LEDGER_EVENT_%s";
constexpr item_row<probe_item> row = {apply_name, create,       set,
                                      remove,     event_format, ot_debug_error};

}  // namespace

int object_tracking_type_prb_verify(const ledger_change& change, ledger_verdict& verdict) {
  OT_TRACE_ENTRY();
  const ledger_path_field* name = change.field(0);
  if (name == nullptr) {
    return invalid_argument;
  }
  OT_TRACE_DETAIL("track_name = %s, op_id = %d", name->text, op_id_of(change.new_value));
  if ((change.event & ledger_event_set) != 0) {
    OT_TRACE_DETAIL("(%s) : ledger track type = PRB", __func__);
  }
  return accept(verdict);
}

int object_tracking_prb_verify(const ledger_change& change, ledger_verdict& verdict) {
  OT_TRACE_ENTRY();
  const ledger_path_field* name = change.field(0);
  if (name == nullptr) {
    return invalid_argument;
  }
  if ((change.event & ledger_event_delete) != 0) {
    return accept(verdict);
  }
  const probe_package package;
  if (!package.available()) {
    return refuse(probe_package_missing, verdict);
  }
  const std::int32_t op_id = op_id_of(change.new_value);
  const int status = creates_or_sets(change)
                         ? check_track_type(name->text, static_cast<std::uint32_t>(op_id))
                         : status_ok;
  if (status != status_ok) {
    return refuse(status, verdict);
  }
  return is_taken(op_id) ? refuse_taken(verdict) : accept(verdict);
}

int object_tracking_type_prb_apply(const ledger_change& change) {
  OT_TRACE_ENTRY();
  if (change.field(0) == nullptr) {
    return invalid_argument;
  }
  OT_TRACE_DETAIL(" Initialize shared mem read only mode ");
  track_prb_init();
  probe_item item{change, op_id_in(change.old_value), op_id_in(change.new_value)};
  return apply_item(row, item);
}

}  // namespace ot
