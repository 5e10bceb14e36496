// Verifying and applying the item of a BFD track.

#include <new>

#include "core/in_addr_text.h"
#include "platform/path_tuple.h"
#include "sources/bfd/track.h"
#include "sources/config_item.h"

namespace ot {
namespace {

constexpr const char* apply_name = "object_tracking_type_bfdprb_apply";

// Places of the path's fields.
enum field_index : std::size_t { field_track, field_type, field_rate, field_debounce, field_if };

std::uint32_t number_of(const ledger_change& change, field_index index) noexcept {
  const ledger_path_field* field = change.field(index);
  return field == nullptr ? 0 : field->number;
}

std::uint32_t destination_of(const ledger_value* value) noexcept {
  std::uint32_t address = 0;
  if (value != nullptr) {
    path_tuple_unpack(value->bytes(), "%N", &address);
  }
  return address;
}

// An absent destination counts as address 0.
struct bfd_item : item_change<std::uint32_t> {
  std::unique_ptr<bfd_cfg> cfg;
};

std::unique_ptr<bfd_cfg> configuration_of(const ledger_change& change) noexcept {
  std::unique_ptr<bfd_cfg> cfg{new (std::nothrow) bfd_cfg{}};
  if (cfg != nullptr) {
    cfg->name.assign(change.fields[field_track].text);
    cfg->interface.assign(change.fields[field_if].text);
    cfg->destaddress = destination_of(change.new_value);
    cfg->rate = number_of(change, field_rate);
    cfg->debounce_count = number_of(change, field_debounce);
    cfg->type_number = number_of(change, field_type);
  }
  return cfg;
}

int create(bfd_item& item) {
  const bfd_cfg& cfg = *item.cfg;
  OT_TRACE_DETAIL("(%s) : track %s, if: %s,  ip %s", apply_name, cfg.name.c_str(),
                  cfg.interface.c_str(), in_addr_s(cfg.destaddress));
  return traced(apply_name, "object_tracking_type_bfdprb_create",
                object_tracking_type_bfdprb_create(std::move(item.cfg)));
}

int remove_old(bfd_item& item) {
  return traced(apply_name, "object_tracking_type_bfdprb_delete",
                object_tracking_type_bfdprb_delete(item.cfg->name.c_str()));
}

int set(bfd_item& item) {
  return replace_item(item, apply_name, remove_old, create);
}

int remove(bfd_item& item) {
  const int status = object_tracking_type_bfdprb_delete(item.cfg->name.c_str());
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : object_tracking_type_bfdprb_deletefailed - %s", apply_name,
                   err_string(status));
  }
  return status;
}

constexpr item_row<bfd_item> row = {apply_name, create, set, remove, "(%s) : LEDGER_EVENT_%s"};

int missing(const char* text) noexcept {
  OT_TRACE_ERROR("%s", text);
  return invalid_argument;
}

}  // namespace

int object_tracking_type_bfdprb_verify(const ledger_change& change, ledger_verdict& verdict) {
  OT_TRACE_ENTRY();
  const ledger_path_field* name = change.field(field_track);
  if (name == nullptr) {
    return invalid_argument;
  }
  const ledger_path_field* interface = change.field(field_if);
  OT_TRACE_DETAIL("track_name:%s type_num:%d rate:%d debounce:%d interface:%s", name->text,
                  static_cast<int>(number_of(change, field_type)),
                  static_cast<int>(number_of(change, field_rate)),
                  static_cast<int>(number_of(change, field_debounce)),
                  interface == nullptr ? "" : interface->text);
  OT_TRACE_DETAIL("(%s) : ledger track type = BFDPRB", __func__);
  verdict.accept = 1;
  return status_ok;
}

int object_tracking_type_bfdprb_apply(const ledger_change& change) {
  OT_TRACE_ENTRY();
  if (change.field(field_track) == nullptr) {
    return missing("Invalid Trackname\n");
  }
  if (change.field(field_if) == nullptr) {
    return missing("Invalid Interface name\n");
  }
  bfd_item item{{change, destination_of(change.old_value), destination_of(change.new_value)},
                configuration_of(change)};
  if (item.cfg == nullptr) {
    OT_TRACE_ERROR("(%s) : Out of memory: %s\n", __func__, err_string(no_memory));
    return no_memory;
  }
  return apply_item(row, item);
}

}  // namespace ot
