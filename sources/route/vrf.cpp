// The connection to the VRF information service, its notifications, and the requests: look-ups both
// ways, and registrations. A request and its reply are freed on every path.

#include "sources/route/vrf.h"

#include <memory>

#include "platform/event_connections.h"
#include "sources/route/table.h"
#include "sources/route/track.h"

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

void unbind(vmap_binding& library) noexcept {
  if (library.id != not_bound) {
    vmap_c_unbind(library.handle, library.id);
    library.id = not_bound;
  }
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

struct free_request {
  void operator()(vmap_mdb* request) const noexcept { vmap_c_mdb_free(request); }
};
struct free_reply {
  void operator()(vmap_lookup_reply* reply) const noexcept { vmap_c_lookup_reply_free(reply); }
};
using request_ptr = std::unique_ptr<vmap_mdb, free_request>;
using reply_ptr = std::unique_ptr<vmap_lookup_reply, free_reply>;

bool failed(const char* who, const char* operation) noexcept {
  OT_TRACE_ERROR("(%s): failed: %s()", who, operation);
  return false;
}

// Adds the VRF that is asked for to a look-up; what it is asked by differs.
struct vrf_key {
  const char* name = nullptr;
  std::uint32_t id = 0;

  [[nodiscard]] int add_to(vmap_mdb* request) const noexcept {
    return name != nullptr
               ? vmap_c_mdb_add_vrf_by_vrf_name(request, nullptr, vmap_c_vr_id_dflt(), name)
               : vmap_c_mdb_add_vrf_by_vrf_id(request, nullptr, vmap_c_vr_id_dflt(), id);
  }
  [[nodiscard]] const char* operation() const noexcept {
    return name != nullptr ? "vmap_c_mdb_add_vrf_by_vrf_name" : "vmap_c_mdb_add_vrf_by_vrf_id";
  }
};

// Copies the first VRF of the answer, before the answer is freed. False when there is none.
bool look_up(const char* who, const vrf_key& key, vmap_vrf& ret) noexcept {
  vmap_mdb* raw_request = nullptr;
  if (vmap_c_mdb_init(vmap_lookup_library.handle, vmap_request_lookup, &raw_request) != status_ok) {
    return failed(who, "vmap_c_mdb_init");
  }
  const request_ptr request{raw_request};
  if (key.add_to(raw_request) != status_ok) {
    return failed(who, key.operation());
  }
  vmap_lookup_reply* raw_reply = nullptr;
  if (vmap_c_lookup(raw_request, &raw_reply) != status_ok) {
    return failed(who, "vmap_c_lookup");
  }
  const reply_ptr reply_owner{raw_reply};
  const vmap_reply* reply = vmap_c_lrc_get_reply(raw_reply);
  if (reply == nullptr) {
    return failed(who, "vmap_c_lrc_get_reply");
  }
  if (vmap_c_lrc_get_reply_status(reply) != status_ok ||
      vmap_c_lrc_get_reply_item_cnt(reply) == 0) {
    return false;
  }
  const vmap_vrf* item = vmap_c_lrc_get_reply_item_vrf(reply, 0);
  if (item == nullptr) {
    return failed(who, "vmap_c_lrc_get_reply_item_vrf");
  }
  ret = *item;
  return true;
}

}  // namespace

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

std::uint32_t ot_vmap_vrf_name_2_vrf_id(const char* name) noexcept {
  vmap_vrf vrf;
  const std::uint32_t id = look_up(__func__, {name, 0}, vrf) ? vrf.id : 0;
  OT_TRACE_DETAIL("(%s): vrf: %s (%x)", __func__, name, id);
  return id;
}

vrf_text ot_vmap_vrf_id_2_vrf_name(std::uint32_t vrf_id) noexcept {
  vmap_vrf vrf;
  if (!look_up(__func__, {nullptr, vrf_id}, vrf)) {
    vrf.name.assign(default_vrf);
  }
  OT_TRACE_DETAIL("(%s): vrf: %s (%x)", __func__, vrf.name.c_str(), vrf_id);
  return vrf.name;
}

int ot_vmap_vrf_add(const char* name, std::uint64_t* handle) noexcept {
  OT_TRACE_DETAIL("%s(): VRF %s", __func__, name);
  if (*handle != 0) {
    return status_ok;
  }
  vmap_mdb* raw_request = nullptr;
  int status =
      vmap_c_mdb_init(vmap_registration_library.handle, vmap_request_registration, &raw_request);
  if (status != status_ok) {
    OT_TRACE_ERROR("%s(): Could not initialize VMAP registration mdb!", __func__);
    return status;
  }
  const request_ptr request{raw_request};
  status =
      vmap_c_mdb_add_vrf_by_vrf_name(raw_request, ot_vmap_vrf_callback, vmap_c_vr_id_dflt(), name);
  if (status != status_ok) {
    OT_TRACE_ERROR("%s(): Could not add for VMAP VRF notifications!", __func__);
    return status;
  }
  vmap_registration_reply reply;
  status = vmap_c_notif_reg(raw_request, &reply);
  if (status != status_ok) {
    OT_TRACE_ERROR("%s(): Could not register for VMAP notifications.", __func__);
    return status;
  }
  if (reply.status != status_ok) {
    OT_TRACE_ERROR("%s(): VMAP returned error", __func__);
    *handle = 0;
    return reply.status;
  }
  *handle = reply.handle;
  return status_ok;
}

int ot_vmap_vrf_remove(const char* name, std::uint64_t* handle) noexcept {
  if (name == nullptr) {
    OT_TRACE_ERROR("%s(): NULL VRF name", __func__);
    return invalid_argument;
  }
  OT_TRACE_DETAIL("%s(): VRF %s", __func__, name);
  if (*handle != 0) {
    vmap_c_notif_unreg(vmap_registration_library.handle, *handle);
    *handle = 0;
  }
  return status_ok;
}

}  // namespace ot
