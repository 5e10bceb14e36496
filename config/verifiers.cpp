// The common verifiers. They look at the state before their stage of the commit and change nothing.

#include "config/verifiers.h"

#include <cstring>
#include <new>

#include "config/expected_tracks.h"
#include "core/debug.h"
#include "core/track.h"
#include "platform/component_status.h"
#include "platform/err_string.h"

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
  std::uint32_t configured = 0;
  if (const expected_track* expected = find_expected_track(name)) {
    configured = expected->present ? expected->configured_type : 0;
  } else if (const ot_track* track = hash_db_get_track_item(name)) {
    configured = track->configured_type;
  }
  return configured == 0 || configured == type_number ? status_ok : track_type_conflict;
}

int object_tracking_track_verify(const ledger_change& change, ledger_verdict& verdict) {
  OT_TRACE_ENTRY();
  if (change.field(0) == nullptr) {
    return invalid_argument;
  }
  if ((change.event & create_or_set) == 0) {
    return accept(verdict);
  }
  const std::uint32_t count = expected_track_count();
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

}  // namespace ot
