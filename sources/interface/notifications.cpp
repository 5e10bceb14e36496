// From bulk notifications to interface entries. An interface counts as up when its line is up and
// it is not a standby member; each of the two may be reported without the other.

#include "sources/interface/client.h"

#include "sources/interface/track.h"

namespace ot {
namespace {

// Stand for what a notification leaves out.
constexpr std::uint32_t state_not_reported = 18;
constexpr std::uint32_t redundancy_not_reported = 2;

// What one item reports.
struct interface_report {
  std::uint32_t state = state_not_reported;
  std::uint32_t redundancy = redundancy_not_reported;
  bool changed = false;
};

void ot_intf_delete(const char* ifname) {
  OT_TRACE_DETAIL("(%s) Delete Interface %s", __func__, ifname);
  interface_entry* entry = hash_db_get_interface_item(ifname);
  if (entry == nullptr) {
    return;
  }
  object_tracking_change_interface_state(entry, ifm_state_down);
  entry->ifhandle = 0;
  if (entry->tracks == nullptr) {
    OT_TRACE_DETAIL("(%s) :No tracks for interface %s - delete interface from hash and cleanup",
                    __func__, ifname);
    hash_db_delete_interface_item(ifname);
  }
}

void read_state(const ifc_item& item, const ifc_attribute& attribute, interface_report& report) {
  if (item.exists == 0) {
    ot_intf_delete(item.name);
    return;
  }
  if (attribute.value != nullptr) {
    report.state = *attribute.value;
  }
  report.changed = true;
}

// A deleted interface is no standby member any more.
void read_redundancy(const ifc_item& item, const ifc_attribute& attribute,
                     interface_report& report) {
  if (item.exists == 0) {
    report.redundancy = 1;
  } else if (attribute.value != nullptr) {
    report.redundancy = *attribute.value;
  }
  report.changed = true;
}

interface_report read_attributes(const ifc_item& item) {
  interface_report report;
  for (const ifc_attribute& attribute : item.attributes) {
    OT_TRACE_DETAIL("(%s) Rx IFM attr %u for %s (%u) %s ", "ot_ifm_handler", attribute.number,
                    item.name, item.handle, item.exists != 0 ? "exists" : "delete");
    if (attribute.number == ifc_attr_state) {
      read_state(item, attribute, report);
    } else if (attribute.number == ifc_attr_redundancy) {
      read_redundancy(item, attribute, report);
    }
  }
  return report;
}

// Looks once more before it makes an entry.
void ot_intf_create(const ifc_item& item) noexcept {
  if (interface_entry* entry = hash_db_get_interface_item(item.name)) {
    entry->ifhandle = item.handle;
    return;
  }
  OT_TRACE_DETAIL("(%s) Create Interface %s(%d)", __func__, item.name,
                  static_cast<int>(item.handle));
  interface_entry entry;
  entry.ifname.assign(item.name);
  entry.ifhandle = item.handle;
  const int status = hash_db_add_new_interface_item(entry);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : hash_db_add_new_item failed - no memory to add item - %s", __func__,
                   err_string(status));
  }
}

// An entry that is there keeps the handle it has.
interface_entry* find_or_create(const ifc_item& item) noexcept {
  interface_entry* entry = hash_db_get_interface_item(item.name);
  if (entry == nullptr) {
    OT_TRACE_DETAIL("(%s) interface %s(%x) not found - creating", "ot_intf_state", item.name,
                    item.handle);
    ot_intf_create(item);
    entry = hash_db_get_interface_item(item.name);
  }
  return entry;
}

// Stores what was reported and fills in what was not.
void complete(interface_entry& entry, interface_report& report) noexcept {
  if (report.redundancy == redundancy_not_reported) {
    report.redundancy = entry.redundancy;
  } else {
    entry.redundancy = report.redundancy;
  }
  if (report.state == state_not_reported) {
    report.state = entry.reported_state;
  } else {
    entry.reported_state = report.state;
  }
}

void ot_intf_state(const ifc_item& item, interface_report report) {
  interface_entry* entry = find_or_create(item);
  if (entry == nullptr) {
    OT_TRACE_ERROR("(%s) Create Fail interface %s(%x) new state %s, redundancy %d", __func__,
                   item.name, item.handle, ifm_state_name(report.state),
                   static_cast<int>(report.redundancy));
    return;
  }
  OT_TRACE_DETAIL("(%s) Interface %s(%x) new state %s/%d, old state %s/%d", __func__, item.name,
                  item.handle, ifm_state_name(report.state), static_cast<int>(report.redundancy),
                  ifm_state_name(entry->reported_state), static_cast<int>(entry->redundancy));
  complete(*entry, report);
  const bool up = report.state == ifm_state_up && report.redundancy != 0;
  const std::uint32_t effective = up ? ifm_state_up : ifm_state_down;
  if (effective != entry->effective_state) {
    object_tracking_change_interface_state(entry, effective);
  }
}

}  // namespace

int ot_ifm_handler(evm*, const ifc_bulk_notification* message) {
  OT_TRACE_DETAIL("(%s) Notified of a set of bulk notifications: cnt:%u code=%d", __func__,
                  static_cast<unsigned>(message->items.size()), static_cast<int>(message->code));
  if (message->code != ifc_bulk_code) {
    return 0;
  }
  for (const ifc_item& item : message->items) {
    const interface_report report = read_attributes(item);
    if (report.changed) {
      ot_intf_state(item, report);
    }
  }
  return 0;
}

}  // namespace ot
