// Applying the interface item: create ties, set unties and ties, delete unties.

#include "sources/config_item.h"
#include "sources/interface/track.h"

namespace ot {
namespace {

constexpr const char* apply_name = "object_tracking_type_interface_apply";

using interface_item = item_change<ifc_name>;

std::optional<ifc_name> name_in(const ledger_value* value) noexcept {
  return value == nullptr ? std::nullopt : std::optional{ifc_name{value->as_text()}};
}

int tie(interface_item& item) {
  const ifc_name ifname = item.after.value_or(ifc_name{});
  const int status = object_tracking_type_interface_create(ifname.c_str(), item.track());
  remember_type(item.change);
  return traced(apply_name, "object_tracking_type_interface_create", status);
}

int untie(interface_item& item) {
  const ifc_name ifname = item.before.value_or(ifc_name{});
  return traced(apply_name, "delete_track_from_interface_entry",
                delete_track_from_interface_entry(ifname.c_str(), item.track()));
}

int retie(interface_item& item) {
  return replace_item(item, apply_name, untie, tie);
}

constexpr item_row<interface_item> row = {apply_name, tie, retie, untie, "(%s) :LEDGER_EVENT_%s"};

}  // namespace

int object_tracking_type_interface_apply(const ledger_change& change) {
  OT_TRACE_ENTRY();
  const ledger_path_field* name = change.field(0);
  if (name == nullptr) {
    return invalid_argument;
  }
  interface_item item{change, name_in(change.old_value), name_in(change.new_value)};
  const auto& ifname = item.after.has_value() ? item.after : item.before;
  OT_TRACE_DETAIL("(%s) :track = %s, interface = %s", __func__, name->text,
                  ifname.has_value() ? ifname->c_str() : "");
  return apply_item(row, item);
}

}  // namespace ot
