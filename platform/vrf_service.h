// vmap_c_: client of the VRF information service: look-ups by name and id, and notifications about
// one VRF, also one that does not exist yet. Requests are built, sent and freed. Main thread.
#pragma once

#include <cstdint>

#include "platform/evm.h"
#include "platform/fixed_text.h"

namespace ot {

struct vmap_lib;
struct vmap_mdb;
struct vmap_lookup_reply;
struct vmap_reply;

using vrf_text = fixed_text<32>;

struct vmap_vrf {
  vrf_text name;
  std::uint32_t id = 0;
};

inline constexpr std::uint32_t vmap_event_update = 0;  // created, or another id or table
inline constexpr std::uint32_t vmap_event_delete = 1;

using vmap_vrf_callback = int (*)(std::uint32_t event, const vmap_vrf* item);

// The default VRF's id (not 0), the default router id, the default IPv4 unicast table id.
std::uint32_t vmap_c_vrf_id_dflt() noexcept;
std::uint32_t vmap_c_vr_id_dflt() noexcept;
std::uint32_t vmap_c_tbl_id_ipv4_ucast_dflt() noexcept;

// Library modes of vmap_c_lib_init, and what a request is for.
inline constexpr std::uint32_t vmap_lib_registration = 0;
inline constexpr std::uint32_t vmap_lib_lookup = 1;
inline constexpr std::uint32_t vmap_request_lookup = 1;
inline constexpr std::uint32_t vmap_request_registration = 2;

// Status code; `ret` is filled on success. The manager may be null for a look-up library.
int vmap_c_lib_init(std::uint32_t mode, const char* name, evm* manager, int (*callback)(),
                    vmap_lib** ret) noexcept;
int vmap_c_bind(vmap_lib* library, std::int32_t* ret_binding) noexcept;
int vmap_c_unbind(vmap_lib* library, std::int32_t binding) noexcept;

int vmap_c_mdb_init(vmap_lib* library, std::uint32_t mode, vmap_mdb** ret) noexcept;
int vmap_c_mdb_add_vrf_by_vrf_name(vmap_mdb* request, vmap_vrf_callback callback,
                                   std::uint32_t router_id, const char* name) noexcept;
int vmap_c_mdb_add_vrf_by_vrf_id(vmap_mdb* request, vmap_vrf_callback callback,
                                 std::uint32_t router_id, std::uint32_t id) noexcept;
// Null is allowed.
void vmap_c_mdb_free(vmap_mdb* request) noexcept;

// Sends a look-up; the reply is the caller's until vmap_c_lookup_reply_free (null is allowed).
int vmap_c_lookup(vmap_mdb* request, vmap_lookup_reply** ret) noexcept;
const vmap_reply* vmap_c_lrc_get_reply(const vmap_lookup_reply* reply) noexcept;
int vmap_c_lrc_get_reply_status(const vmap_reply* reply) noexcept;
std::uint32_t vmap_c_lrc_get_reply_item_cnt(const vmap_reply* reply) noexcept;
// Null past the last item; lives as long as the reply.
const vmap_vrf* vmap_c_lrc_get_reply_item_vrf(const vmap_reply* reply,
                                              std::uint32_t index) noexcept;
void vmap_c_lookup_reply_free(vmap_lookup_reply* reply) noexcept;

// What the service answered to a registration.
struct vmap_registration_reply {
  int status = 0;
  std::uint64_t handle = 0;
};
int vmap_c_notif_reg(vmap_mdb* request, vmap_registration_reply* ret) noexcept;
int vmap_c_notif_unreg(vmap_lib* library, std::uint64_t handle) noexcept;

}  // namespace ot
