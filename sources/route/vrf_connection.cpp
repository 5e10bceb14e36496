// The connection to the VRF information service, and its notifications. Look-ups are in
// vrf_lookup.cpp.

#include "sources/route/vrf_connection.h"

#include "core/debug.h"
#include "platform/status.h"
#include "sources/route/changes.h"
#include "sources/route/vrf_libraries.h"

namespace ot {

vmap_binding vmap_lookup_library;
vmap_binding vmap_registration_library;

namespace {

constexpr std::uint32_t connection_mode = 2;
constexpr std::uint32_t retry_first = 3;
constexpr std::uint32_t retry_longest = 3;

evm_conn* connection = nullptr;

int always_one() {
  return 1;
}

int rebind(vmap_binding& library) noexcept {
  unbind(library);
  const int status = vmap_c_bind(library.handle, &library.id);
  if (status != status_ok) {
    library.id = not_bound;
  }
  return status;
}

// The steps of init; each runs only when the one before succeeded.
struct init_step {
  const char* failure;  // trace format: init's name, error text
  int (*run)(evm* manager);
};

constexpr init_step init_steps[] = {
    {"%s(): VMAP lookup library init, %s",
     [](evm*) {
       return vmap_c_lib_init(vmap_lib_lookup, "OT_mp_lkup", nullptr, nullptr,
                              &vmap_lookup_library.handle);
     }},
    {"%s(): VMAP VRF reg library init, %s",
     [](evm* manager) {
       return vmap_c_lib_init(vmap_lib_registration, "ot_vrf", manager, always_one,
                              &vmap_registration_library.handle);
     }},
    {"%s(): VMAP event conn create %s",
     [](evm* manager) {
       return evm_conn_create(manager, ot_vmap_open, manager, connection_mode, &connection);
     }},
    {"%s(): VMAP event conn setretry %s",
     [](evm*) { return evm_conn_setretry(connection, retry_first, retry_longest); }},
    {"%s(): VMAP event conn notify %s",
     [](evm*) {
       return evm_conn_notify(connection, evm_conn_closed | evm_conn_failed, ot_vmap_close);
     }},
};

int open_connection(const char* who) noexcept {
  const int status = evm_conn_open(connection);
  if (status == open_in_progress) {
    OT_TRACE_DETAIL("%s(): VMAP event conn open retry, %s", who, err_string(status));
    return status_ok;
  }
  if (status != status_ok) {
    OT_TRACE_ERROR("%s(): VMAP event conn open %s", who, err_string(status));
  }
  return status;
}

}  // namespace

void unbind(vmap_binding& library) noexcept {
  if (library.id != not_bound) {
    vmap_c_unbind(library.handle, library.id);
    library.id = not_bound;
  }
}

int ot_vmap_init(evm* manager) noexcept {
  for (const init_step& step : init_steps) {
    const int status = step.run(manager);
    if (status != status_ok) {
      OT_TRACE_ERROR(step.failure, __func__, err_string(status));
      return status;
    }
  }
  return open_connection(__func__);
}

void ot_vmap_stop() noexcept {
  unbind(vmap_lookup_library);
  unbind(vmap_registration_library);
}

std::uint32_t ot_vmap_open(void*) {
  OT_TRACE_DETAIL("%s(): VMAP conn open handler called", __func__);
  int status = ot_vmap_lookup_init();
  if (status != status_ok) {
    OT_TRACE_ERROR("%s():VMAP lookup init failed after restart, %s", __func__, err_string(status));
    return evm_no_connection;
  }
  status = rebind(vmap_registration_library);
  if (status != status_ok) {
    OT_TRACE_ERROR("%s(): VMAP bind failed, %s", __func__, err_string(status));
    return evm_no_connection;
  }
  return static_cast<std::uint32_t>(vmap_registration_library.id);
}

void ot_vmap_close(evm_conn*, std::uint32_t event) {
  OT_TRACE_DETAIL("%s(): In VMAP close handler", __func__);
  if (event != evm_conn_closed && event != evm_conn_failed) {
    OT_TRACE_ERROR("%s(): Unknown event mgr connection event 0x%x", __func__, event);
    return;
  }
  unbind(vmap_lookup_library);
  unbind(vmap_registration_library);
}

int ot_vmap_lookup_init() noexcept {
  const int status = rebind(vmap_lookup_library);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s): VMAP lookup bind, %s", __func__, err_string(status));
  }
  return status;
}

int ot_vmap_vrf_callback(std::uint32_t event, const vmap_vrf* item) {
  OT_TRACE_DETAIL("(%s)", __func__);
  if (item == nullptr) {
    OT_TRACE_ERROR("(%s): VMAP invoked callback with NULL table item", __func__);
    return 0;
  }
  if (event == vmap_event_update) {
    OT_TRACE_DETAIL("(%s): VMAP VRF Update event for VRF %s %x", __func__, item->name.c_str(),
                    item->id);
    ot_update_track_vrf_id(item->name.c_str(), item->id);
  } else if (event == vmap_event_delete) {
    OT_TRACE_DETAIL("(%s): VMAP VRF Delete event for VRF %s %x", __func__, item->name.c_str(),
                    item->id);
    ot_delete_track_vrf_id(item->name.c_str(), item->id);
  }
  return 0;
}

}  // namespace ot
