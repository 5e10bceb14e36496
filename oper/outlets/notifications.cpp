// The notification batch. A burst of changes, such as an interface that a thousand tracks follow,
// costs one platform call for every 512 of them. A robust mutex guards the batch, so that a thread
// that dies while queueing does not take the outlet with it.

#include "oper/outlets/notifications.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "core/debug.h"
#include "platform/robust_mutex.h"
#include "platform/status.h"
#include "state/ledger_state.h"
#include "state/timers.h"

namespace ot {

ledger_conn* ot_ledger_oper = nullptr;

namespace {

enum notification_mode : int { mode_set = 0, mode_deleted = 1 };

constexpr std::size_t path_size = 128;

ot_notification batch[notification_batch_size];
std::uint32_t batch_count = 0;
robust_mutex batch_mutex;

char* new_path(const char* name) noexcept {
  char text[path_size];
  std::snprintf(text, sizeof text, "%s", name);
  const std::size_t size = std::strlen(text) + 1;
  char* path = new (std::nothrow) char[size];
  if (path != nullptr) {
    std::memcpy(path, text, size);
  }
  return path;
}

void free_entry(ot_notification& entry) noexcept {
  delete[] entry.path;
  delete entry.new_value;
  delete entry.old_value;
  entry = ot_notification{};
}

// An entry with the value cell where the mode wants it.
ot_notification make_entry(char* path, std::uint32_t* cell, int mode) noexcept {
  ot_notification entry;
  entry.path = path;
  if (mode == mode_set) {
    entry.kind = ledger_notification_set;
    entry.new_value = cell;
    entry.new_value_length = sizeof *cell;
  } else {
    entry.kind = ledger_notification_delete;
    entry.old_value = cell;
    entry.old_value_length = sizeof *cell;
  }
  entry.valid = 1;
  return entry;
}

// Appends under the mutex. A change that finds no memory is dropped.
int append(const char* name, std::uint32_t state, int mode) {
  const robust_lock lock(batch_mutex, "OT_dpv_queue_notification");
  if (batch_count == 0) {
    set_ot_nfn_timer(tracks_nfn_timer);
  }
  if (mode != mode_set && mode != mode_deleted) {
    return invalid_argument;
  }
  auto* cell = new (std::nothrow) std::uint32_t{state};
  char* path = new_path(name);
  if (cell == nullptr || path == nullptr) {
    delete cell;
    delete[] path;
    return status_ok;
  }
  ot_notification& entry = batch[batch_count];
  entry = make_entry(path, cell, mode);
  entry.sequence = ++batch_count;
  OT_TRACE(ot_debug_notification, "OT DPV - Notification %u queued (%s)", entry.sequence,
           entry.path);
  return status_ok;
}

void free_batch() noexcept {
  while (batch_count != 0) {
    free_entry(batch[--batch_count]);
  }
}

}  // namespace

int ot_ledger_oper_bind() noexcept {
  return ledger_bind(published_states_path, &ot_ledger_oper);
}

void ot_ledger_oper_unbind() noexcept {
  if (ot_ledger_oper != nullptr) {
    ledger_unbind(ot_ledger_oper);
    ot_ledger_oper = nullptr;
  }
}

int OT_dpv_queue_notification(const char* name, std::uint32_t state, int mode) {
  const int status = append(name, state, mode);
  if (status == status_ok && batch_count >= notification_batch_size &&
      OT_dpv_dispatch_notifications() != status_ok) {
    OT_TRACE_ERROR("(%s) :Failed to send notification batch", __func__);
  }
  return status;
}

int OT_dpv_dispatch_notifications() {
  const robust_lock lock(batch_mutex, __func__);
  if (batch_count == 0) {
    return status_ok;
  }
  const int status = ledger_dpv_generate_notifications(ot_ledger_oper, batch, batch_count);
  OT_TRACE(ot_debug_notification, "OT DPV - Notifications Sent %d", static_cast<int>(batch_count));
  free_batch();
  return status;
}

void send_delayed_notifications(const ot_timer_ctx&) {
  OT_TRACE_DETAIL("NFN queue timer triggered");
  OT_dpv_dispatch_notifications();
}

void ot_notifications_drop() noexcept {
  free_batch();
}

}  // namespace ot
