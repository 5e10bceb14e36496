// Reading, writing and deleting published states. Reads and deletes bind a connection of their own,
// so they work before ot_ha_ledger is bound.

#include "state/ledger_state.h"

#include "core/debug.h"
#include "core/track.h"
#include "oper/outlets/notifications.h"
#include "platform/err_string.h"
#include "platform/ledger_status.h"
#include "platform/process.h"

namespace ot {

ledger_conn* ot_ha_ledger = nullptr;
bool is_bound_ot_ha_ledger = false;

namespace {

std::uint32_t ot_restart = 0;

// Only success is remembered: the library may be installed while the service runs.
bool library_seen = false;

bool library_present() noexcept {
  library_seen = library_seen || ledger_library_readable();
  return library_seen;
}

track_state state_of(std::uint32_t item) noexcept {
  const auto state = static_cast<track_state>(item);
  return state == track_state::up || state == track_state::down ? state : track_state::unknown;
}

// A private binding for one operation; null, with the reason in `status`, when it cannot be had.
class private_binding {
 public:
  explicit private_binding(const char* who) noexcept {
    status_ = library_present() ? ledger_bind(published_states_path, &connection_)
                                : ledger_library_missing;
    if (status_ == status_ok) {
      OT_TRACE_DETAIL("(%s): ledger bind was succesful", who);
    } else if (status_ != ledger_library_missing) {
      OT_TRACE_DETAIL("(%s): ledger bind failed", who);
    }
  }
  ~private_binding() {
    if (connection_ != nullptr) {
      ledger_unbind(connection_);
    }
  }
  private_binding(const private_binding&) = delete;
  private_binding& operator=(const private_binding&) = delete;

  [[nodiscard]] int status() const noexcept { return status_; }
  [[nodiscard]] ledger_conn* connection() const noexcept { return connection_; }

 private:
  ledger_conn* connection_ = nullptr;
  int status_ = status_ok;
};

int read_state(const char* who, const char* name, track_state* ret_state) noexcept {
  OT_TRACE_DETAIL("Entering (%s) : ", who);
  const private_binding binding(who);
  ledger_value value;
  int status = binding.status();
  if (status == status_ok) {
    status = ledger_item_get(binding.connection(), name, &value);
  }
  if (status != status_ok) {
    *ret_state = track_state::unknown;
    OT_TRACE_DETAIL("(%s): track %s probably not configured yet state=%s", who, name,
                    track_state_text(*ret_state));
    return status;
  }
  OT_TRACE_DETAIL("(%s): ledger get was succesful", who);
  *ret_state = state_of(value.as_u32());
  OT_TRACE_DETAIL("(%s): state = %d", who, static_cast<int>(*ret_state));
  return status_ok;
}

}  // namespace

int ot_ha_ledger_bind() noexcept {
  const int status = ledger_bind(published_states_path, &ot_ha_ledger);
  is_bound_ot_ha_ledger = status == status_ok;
  return status;
}

void ot_ha_ledger_unbind() noexcept {
  if (is_bound_ot_ha_ledger) {
    ledger_unbind(ot_ha_ledger);
  }
  ot_ha_ledger = nullptr;
  is_bound_ot_ha_ledger = false;
  library_seen = false;  // a service that starts again looks again
}

int ledger_write_track_state(const char* name, track_state state) noexcept {
  const std::uint32_t item = state == track_state::up ? 1 : 2;
  return ledger_item_set(ot_ha_ledger, name, ledger_kind::u32, std::as_bytes(std::span{&item, 1}));
}

int object_tracking_ledger_get_prb_track_state(const char* name, track_state* ret_state) noexcept {
  return read_state(__func__, name, ret_state);
}

int ot_ledger_get_track_state(const char* name, track_state* ret_state) noexcept {
  return read_state(__func__, name, ret_state);
}

void ot_set_restart(std::uint32_t start_count) noexcept {
  ot_restart = start_count >= 2 ? 1 : 0;
}

std::uint32_t ot_is_restart() noexcept {
  return ot_restart;
}

void take_over_published_state(ot_track& track) noexcept {
  if (ot_restart != 0) {
    ot_ledger_get_track_state(track.name.c_str(), &track.state);
  }
}

void take_published_down_for_unknown(ot_track& track) noexcept {
  if (ot_restart != 0 && track.source_state == track_state::unknown &&
      track.state == track_state::down) {
    track.state = track_state::unknown;
  }
}

int object_tracking_delete_item_from_ledger(const char* name) noexcept {
  OT_TRACE_ENTRY();
  const private_binding binding(__func__);
  if (binding.status() != status_ok) {
    return binding.status();
  }
  int status = ledger_item_delete(binding.connection(), name);
  OT_dpv_queue_notification(name, 0, 1);
  if (status == ledger_no_data) {
    OT_TRACE_ERROR("(%s) :  LEDGER_OPER_OT_CLIENT del of %s failed - %s", __func__, name,
                   err_string(status));
    status = status_ok;
  }
  return status;
}

}  // namespace ot
