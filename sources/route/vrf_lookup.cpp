// Requests to the VRF information service: look-ups both ways, and registrations. A request and its
// reply are freed on every path.

#include <memory>

#include "core/debug.h"
#include "platform/status.h"
#include "sources/route/table.h"
#include "sources/route/vrf_connection.h"
#include "sources/route/vrf_libraries.h"

namespace ot {
namespace {

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
