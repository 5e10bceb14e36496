// From the BFD thread to the main thread. Each event is copied into a block of its own and queued;
// the main thread is woken by a post for each, applies all that it finds, and frees them.

#include <mutex>
#include <new>

#include "core/in_addr_text.h"
#include "platform/event_manager.h"
#include "sources/bfd/client.h"
#include "sources/bfd/track.h"
#include "sources/interface/client.h"
#include "sources/waiting_queue.h"

namespace ot {
namespace {

// An event on its way.
struct handed_event : lq_link {
  virtual ~handed_event() = default;
  virtual void apply() const = 0;
};

template <typename Event, void (*Apply)(const Event&)>
struct handed final : handed_event {
  explicit handed(const Event& copied) noexcept : event(copied) {}
  void apply() const override { Apply(event); }
  Event event;
};

evm* main_loop = nullptr;
std::mutex events_lock;
waiting_queue<handed_event> events;  // under the lock

std::unique_ptr<handed_event> next_event() noexcept {
  const std::lock_guard guard(events_lock);
  return events.pop();
}

void apply_events(void* /*argument*/) {
  while (const auto event = next_event()) {
    event->apply();
  }
}

// An event that was queued while the main thread could not be woken is applied with the next one.
template <typename Event, void (*Apply)(const Event&)>
void hand_over(const char* who, const Event& event) {
  std::unique_ptr<handed_event> copy{new (std::nothrow) handed<Event, Apply>{event}};
  int status = no_memory;
  if (copy != nullptr) {
    {
      const std::lock_guard guard(events_lock);
      events.push(std::move(copy));
    }
    status = evm_post(main_loop, apply_events, nullptr);
  }
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : event not handed over - %s", who, err_string(status));
  }
}

void apply_bind(const bfdc_bind_result& result) {
  const bool bound = result.result == status_ok;
  is_ot_bfd_bind_done = bound ? 1 : 0;
  if (bound) {
    OT_TRACE_DETAIL("(%s) bind to bfd server successful ", "ot_bfd_bind_handler");
  } else {
    OT_TRACE_ERROR("(%s) bind to bfd server failed\n", "ot_bfd_bind_handler");
  }
}

void connected() {
  is_ot_bfd_connection_up = 1;
  if (is_bfd_config_pending == 1) {
    ot_bfd_create_all_sessions();
    is_bfd_config_pending = 0;
  }
}

void apply_connection(const bfdc_connection_status& status) {
  switch (status.status) {
    case 0:
      is_ot_bfd_connection_up = 0;
      break;
    case 1:
      connected();
      break;
    default:
      OT_TRACE_ERROR("(%s) invalid connection status", "ot_bfd_conn_handler");
  }
}

void session_created(const bfdc_request_result& result) {
  bfdprb_entry* entry = hash_db_get_bfdprb_item(result.ifhandle, result.destination);
  if (entry == nullptr) {
    OT_TRACE_ERROR("(%s) Invalid bfd session key\n", "ot_bfd_req_handler");
    return;
  }
  entry->state = static_cast<std::uint32_t>(track_state::down);
}

// A session that has been asked for again since is not the one that was given up.
void session_deleted(const bfdc_request_result& result) {
  const bfdprb_entry* entry = hash_db_get_bfdprb_item(result.ifhandle, result.destination);
  if (entry != nullptr && entry->created_by > result.sequence) {
    return;
  }
  const int status = hash_db_delete_bfdprb_item(result.ifhandle, result.destination);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) hash_db_delete_bfdprb_item failed with error: %s\n", "ot_bfd_req_handler",
                   err_string(status));
  }
}

// The name is of the latest request and need not be that of this one, so it decides nothing.
void trace_context(const bfdc_request_result& result) noexcept {
  const auto* name = static_cast<const track_name*>(result.context);
  if (name == nullptr) {
    OT_TRACE_ERROR("(%s):Failed to get track_item from hash table", "ot_bfd_req_handler");
  } else if (hash_db_get_track_item(name->c_str()) == nullptr) {
    OT_TRACE_ERROR("(%s):BFD Context is NULL", "ot_bfd_req_handler");
  }
}

void trace_request(const bfdc_request_result& result) noexcept {
  if (result.error != status_ok) {
    OT_TRACE_ERROR("(%s):Failed in BFD server request: %s ", "ot_bfd_req_handler",
                   err_string(result.error));
  }
  char ifname[64] = {};
  ot_dpv_get_ifname(ifname, result.ifhandle);
  OT_TRACE_DETAIL("Event %u, interface %s, destination %s, seq_id %u", result.event, ifname,
                  in_addr_s(ipv4_of(result.destination)), result.sequence);
}

void apply_request(const bfdc_request_result& result) {
  trace_request(result);
  trace_context(result);
  switch (result.event) {
    case bfdc_request_created:
      session_created(result);
      break;
    case bfdc_request_deleted:
    case bfdc_request_unconfigured:
      session_deleted(result);
      break;
    default:
      errmsg_log(&kor_msg_rec_ot_unknown_bfd_event, kor_msg_rec_ot_unknown_bfd_event.severity,
                 "Unsupported event %u", result.event);
  }
}

void apply_state(const bfdc_event& event) {
  if (event.kind != bfdc_event_session_state) {
    OT_TRACE_ERROR("(%s):Unexpected BFD Event :%d ", "ot_bfd_scn_handler",
                   static_cast<int>(event.kind));
    return;
  }
  bfdprb_entry* entry = hash_db_get_bfdprb_item(event.ifhandle, event.destination);
  if (entry == nullptr) {
    OT_TRACE_ERROR("(%s):Error getting bfd_entry data from hash table", "ot_bfd_scn_handler");
    return;
  }
  const track_state state = event.session_state == 0 ? track_state::up : track_state::down;
  entry->state = static_cast<std::uint32_t>(state);
  object_tracking_change_bfdprb_state(*entry);
}

}  // namespace

void ot_bfd_set_main_loop(evm* manager) noexcept {
  main_loop = manager;
}

void ot_bfd_drop_events() noexcept {
  const std::lock_guard guard(events_lock);
  events.clear();
}

void ot_bfd_bind_handler(const bfdc_bind_result* result) {
  hand_over<bfdc_bind_result, apply_bind>(__func__, *result);
}

void ot_bfd_conn_handler(const bfdc_connection_status* status) {
  hand_over<bfdc_connection_status, apply_connection>(__func__, *status);
}

void ot_bfd_req_handler(const bfdc_request_result* result) {
  if (result == nullptr) {
    OT_TRACE_ERROR("(%s): Received NULL parameter ", __func__);
    return;
  }
  hand_over<bfdc_request_result, apply_request>(__func__, *result);
}

void ot_bfd_scn_handler(const bfdc_event* event) {
  if (event == nullptr) {
    OT_TRACE_ERROR("(%s): BFD event info is NULL ", __func__);
    return;
  }
  hand_over<bfdc_event, apply_state>(__func__, *event);
}

}  // namespace ot
