// Applying the interface item: create ties, set unties and ties, delete unties.

#include "sources/interface/config.h"

#include "core/debug.h"
#include "platform/status.h"
#include "sources/interface/track.h"
#include "state/track_record.h"

namespace ot {
namespace {

constexpr const char* apply_name = "object_tracking_type_interface_apply";

ifc_name ifname_of(const ledger_value* value) noexcept {
  return value == nullptr ? ifc_name{} : ifc_name{value->as_text()};
}

int tie(const ledger_change& change, const ifc_name& ifname) {
  const char* name = change.fields[0].text;
  const int status = object_tracking_type_interface_create(ifname.c_str(), name);
  const ledger_path_field* type = change.field(1);
  if (type != nullptr) {
    set_configured_type(name, type->number);
  }
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : object_tracking_type_interface_create failed - %s", apply_name,
                   err_string(status));
  }
  return status;
}

int untie(const ledger_change& change, const ifc_name& ifname) {
  const int status = delete_track_from_interface_entry(ifname.c_str(), change.fields[0].text);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : delete_track_from_interface_entry failed - %s", apply_name,
                   err_string(status));
  }
  return status;
}

// A set that brings no name leaves the track untied.
int retie(const ledger_change& change, const ifc_name& old_name, const ifc_name& new_name) {
  if (change.old_value != nullptr) {
    if (change.new_value != nullptr && old_name == new_name) {
      OT_TRACE_DETAIL("(%s) config not changed, do nothing", apply_name);
      return status_ok;
    }
    const int status = untie(change, old_name);
    if (status != status_ok) {
      return status;
    }
  }
  return change.new_value == nullptr ? status_ok : tie(change, new_name);
}

}  // namespace

int object_tracking_type_interface_apply(const ledger_change& change) {
  OT_TRACE_ENTRY();
  const ledger_path_field* name = change.field(0);
  if (name == nullptr) {
    return invalid_argument;
  }
  const ifc_name old_name = ifname_of(change.old_value);
  const ifc_name new_name = ifname_of(change.new_value);
  OT_TRACE_DETAIL("(%s) :track = %s, interface = %s", __func__, name->text,
                  change.new_value != nullptr ? new_name.c_str() : old_name.c_str());
  if ((change.event & ledger_event_create) != 0) {
    OT_TRACE_DETAIL("(%s) :LEDGER_EVENT_CREATE", __func__);
    return tie(change, new_name);
  }
  if ((change.event & ledger_event_set) != 0) {
    OT_TRACE_DETAIL("(%s) :LEDGER_EVENT_SET", __func__);
    return retie(change, old_name, new_name);
  }
  if ((change.event & ledger_event_delete) != 0) {
    OT_TRACE_DETAIL("(%s) :LEDGER_EVENT_DELETE", __func__);
    return untie(change, old_name);
  }
  return status_ok;
}

}  // namespace ot
