// Verifying and applying the operation of a probe track.

#include "sources/probe/config.h"

#include "config/verifiers.h"
#include "core/debug.h"
#include "platform/status.h"
#include "sources/probe/statistics.h"
#include "sources/probe/table.h"
#include "sources/probe/track.h"
#include "state/track_record.h"

namespace ot {
namespace {

constexpr const char* apply_name = "object_tracking_type_prb_apply";

std::int32_t op_id_of(const ledger_value* value) noexcept {
  return value == nullptr ? 0 : static_cast<std::int32_t>(value->as_u32());
}

int refuse_taken(ledger_verdict& verdict) noexcept {
  OT_TRACE_ERROR(" Multiple tracker case ");
  report_configuration_error(probe_operation_taken);
  return refuse(probe_operation_taken, verdict);
}

int create(const ledger_change& change) {
  const char* name = change.fields[0].text;
  const int status = object_tracking_type_prb_create(name, op_id_of(change.new_value));
  if (const ledger_path_field* type = change.field(1)) {
    set_configured_type(name, type->number);
  }
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : object_tracking_type_prb_create failed - %s", apply_name,
                   err_string(status));
  }
  return status;
}

int remove(const ledger_change& change) {
  const int status = object_tracking_type_prb_delete(change.fields[0].text);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : delete_track_from_prb_entry failed - %s", apply_name,
                   err_string(status));
  }
  return status;
}

int set(const ledger_change& change) {
  if (change.new_value == nullptr) {
    return status_ok;
  }
  if (change.old_value != nullptr) {
    if (op_id_of(change.old_value) == op_id_of(change.new_value)) {
      OT_TRACE_DETAIL("(%s) config not changed, do nothing", apply_name);
      return status_ok;
    }
    const int status = remove(change);
    if (status != status_ok) {
      return status;
    }
  }
  return create(change);
}

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
  return hash_db_get_prb_item(op_id) != nullptr ? refuse_taken(verdict) : accept(verdict);
}

int object_tracking_type_prb_apply(const ledger_change& change) {
  OT_TRACE_ENTRY();
  if (change.field(0) == nullptr) {
    return invalid_argument;
  }
  OT_TRACE_DETAIL(" Initialize shared mem read only mode ");
  track_prb_init();
  if ((change.event & ledger_event_create) != 0) {
    OT_TRACE_ERROR("(%s) :LEDGER_EVENT_CREATE", __func__);
    return create(change);
  }
  if ((change.event & ledger_event_set) != 0) {
    OT_TRACE_ERROR("(%s) :LEDGER_EVENT_SET", __func__);
    return set(change);
  }
  if ((change.event & ledger_event_delete) != 0) {
    OT_TRACE_ERROR("(%s) :LEDGER_EVENT_DELETE", __func__);
    return change.old_value == nullptr ? status_ok : remove(change);
  }
  return status_ok;
}

}  // namespace ot
