// The common verifiers. They look at the state before the commit and change nothing.

#include "config/verifiers.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "core/debug.h"
#include "core/track.h"
#include "platform/ipv4.h"
#include "platform/path_tuple.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr std::uint32_t create_or_set = ledger_event_create | ledger_event_set;

int verify_type(const char* who, const ledger_change& change, ledger_verdict& verdict) noexcept {
  OT_TRACE_DETAIL("Entering (%s) : ", who);
  const ledger_path_field* name = change.field(0);
  const ledger_path_field* type = change.field(1);
  if (name == nullptr || type == nullptr) {
    return invalid_argument;
  }
  const int status = creates_or_sets(change) ? check_track_type(name->text, type->number) : 0;
  return status == status_ok ? accept(verdict) : refuse(status, verdict);
}

// Whether the track has its route type item.
int route_type_item_status(const char* name) noexcept {
  char path[160];
  std::snprintf(path, sizeof path, "cfg/gl/object_tracking/track/%s/type/route/0x2/a", name);
  ledger_conn* ledger = ledger_get_default_conn();
  ledger_value item;
  return ledger == nullptr ? ledger_unreachable : ledger_item_get(ledger, path, &item);
}

bool mask_is_contiguous(const ledger_value* value) noexcept {
  std::uint32_t address = 0;
  std::uint32_t mask = 0;
  return value != nullptr &&
         path_tuple_unpack(value->bytes(), "%N%N", &address, &mask) == status_ok &&
         ipv4_mask_is_contiguous(mask);
}

}  // namespace

int accept(ledger_verdict& verdict) noexcept {
  verdict.accept = 1;
  return status_ok;
}

bool creates_or_sets(const ledger_change& change) noexcept {
  return change.event >= ledger_event_create && change.event <= create_or_set;
}

int refuse_with_text(int code, const char* text, ledger_verdict& verdict) noexcept {
  const std::size_t size = std::strlen(text) + 1;
  verdict.accept = 0;
  verdict.text.reset(new (std::nothrow) char[size]);
  if (verdict.text != nullptr) {
    std::memcpy(verdict.text.get(), text, size);
  }
  return code;
}

int refuse(int code, ledger_verdict& verdict) noexcept {
  return refuse_with_text(code, err_string(code), verdict);
}

void report_configuration_error(int code) noexcept {
  errmsg_log(&kor_msg_rec_ot_ledger_fail, kor_msg_rec_ot_ledger_fail.severity,
             "Configuration Error:", err_string(code));
}

int check_track_type(const char* name, std::uint32_t type_number) noexcept {
  const ot_track* track = hash_db_get_track_item(name);
  const bool fits =
      track == nullptr || track->configured_type == 0 || track->configured_type == type_number;
  return fits ? status_ok : track_type_conflict;
}

int object_tracking_track_verify(const ledger_change& change, ledger_verdict& verdict) {
  OT_TRACE_ENTRY();
  if (change.field(0) == nullptr) {
    return invalid_argument;
  }
  if ((change.event & create_or_set) == 0) {
    return accept(verdict);
  }
  const std::uint32_t count = hash_db_count(tracks_table);
  OT_TRACE_DETAIL("Num current objs %d", static_cast<int>(count));
  if (count >= max_tracks) {
    OT_TRACE_ERROR("Max Limit reached: current objs %d", static_cast<int>(count));
    return refuse(too_many_tracks, verdict);
  }
  return accept(verdict);
}

int object_tracking_default_verify(const ledger_change&, ledger_verdict& verdict) {
  OT_TRACE_ENTRY();
  return accept(verdict);
}

int object_tracking_type_verify(const ledger_change& change, ledger_verdict& verdict) {
  return verify_type(__func__, change, verdict);
}

int object_tracking_type_interface_verify(const ledger_change& change, ledger_verdict& verdict) {
  return verify_type(__func__, change, verdict);
}

int object_tracking_verify_ip_mask_and_type(const ledger_change& change, ledger_verdict& verdict) {
  OT_TRACE_ENTRY();
  const ledger_path_field* name = change.field(0);
  if (name == nullptr) {
    return invalid_argument;
  }
  if ((change.event & ledger_event_set) != 0 && route_type_item_status(name->text) != status_ok) {
    OT_TRACE_ERROR("(%s) : ledger track type = ROUTE", __func__);
    report_configuration_error(track_type_conflict);
    return refuse(track_type_conflict, verdict);
  }
  if ((change.event & create_or_set) != 0 && !mask_is_contiguous(change.new_value)) {
    report_configuration_error(route_mask_not_contiguous);
    return refuse(route_mask_not_contiguous, verdict);
  }
  return accept(verdict);
}

int object_tracking_type_list_object_verify(const ledger_change& change, ledger_verdict& verdict) {
  OT_TRACE_ENTRY();
  const ledger_path_field* name = change.field(0);
  const ledger_path_field* member = change.field(2);
  if (name == nullptr || member == nullptr) {
    return invalid_argument;
  }
  if (creates_or_sets(change) && std::strcmp(name->text, member->text) == 0) {
    return refuse(list_names_itself, verdict);
  }
  return accept(verdict);
}

}  // namespace ot
