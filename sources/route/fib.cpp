// Requests to the FIB, and its three callbacks. The connection flag belongs to the reconnect and
// disconnect callbacks; while it is down nothing is registered, and what was skipped is made good
// on reconnection. A mutex of its own serialises the notification handler.

#include "sources/route/fib.h"

#include <cstring>

#include "core/connections.h"
#include "core/in_addr_text.h"
#include "platform/ipv4.h"
#include "platform/robust_mutex.h"
#include "sources/route/table.h"
#include "sources/route/track.h"
#include "sources/route/vrf.h"

namespace ot {

std::uint32_t ot_fib_connection_up = 0;

namespace {

constexpr const char client_name[] = "object_tracking";
constexpr std::uint32_t client_mode = 1;
constexpr std::uint32_t client_channel = 3225;
constexpr std::uint32_t host_length = 32;

rtclient* client = nullptr;  // null until initialised
robust_mutex notification_mutex;

rtclient_registration registration(std::uint32_t prefix, std::uint32_t mask,
                                   std::uint32_t vrf_id) noexcept {
  rtclient_registration request;
  request.table_id = ot_tblx_vrf_id_2_table_id(vrf_id);
  request.family = fib_family_ipv4;
  request.prefix = prefix;
  request.prefix_length = static_cast<std::uint16_t>(ipv4_mask2prefixlen(mask));
  std::memcpy(request.client_name, client_name, sizeof client_name - 1);
  return request;
}

using translation = int (*)(std::uint32_t id, std::uint32_t* ret) noexcept;

std::uint32_t translate(translation look_up, std::uint32_t id, std::uint32_t fallback) noexcept {
  std::uint32_t found = 0;
  return id != 0 && look_up(id, &found) == status_ok ? found : fallback;
}

void trace_translation(const char* who, std::uint32_t table_id, std::uint32_t vrf_id) noexcept {
  OT_TRACE_DETAIL("(%s): TableID 0x%08X VrfID 0x%08X", who, table_id, vrf_id);
}

// Whether the entry and all of its tracks have that state. A track that was tied while the route
// changed may have seen another one than those before it.
bool is_known_everywhere(const route_entry& entry, track_state state) noexcept {
  if (entry.reach_state != static_cast<std::uint32_t>(state)) {
    return false;
  }
  for (const track_name_node* node = entry.tracks; node != nullptr; node = node->next) {
    const ot_track* track = hash_db_get_track_item(node->name.c_str());
    if (track != nullptr && track->source_state != state) {
      return false;
    }
  }
  return true;
}

// The first failure ends the walk.
int register_known_routes() noexcept {
  for (auto* entry = hash_db_first_data<route_entry>(ipv4_route_table); entry != nullptr;
       entry = hash_db_next_data<route_entry>(ipv4_route_table)) {
    if (entry->vrf_id == 0) {
      continue;
    }
    const int status = traced_route_call(
        "ot_fec_reconnect_handler", "ot_fec_register", entry->prefix, entry->mask,
        entry->vrf.c_str(), ot_fec_register(entry->prefix, entry->mask, entry->vrf_id));
    if (status != status_ok) {
      return status;
    }
  }
  return status_ok;
}

}  // namespace

int ot_fec_init(evm* manager) noexcept {
  OT_TRACE_DETAIL("(%s) : ", __func__);
  if (client != nullptr) {
    return status_ok;
  }
  if (manager == nullptr) {
    OT_TRACE_ERROR("(%s) : NULL evm", __func__);
    return invalid_argument;
  }
  const rtclient_parameters parameters{client_name, client_mode, manager, client_channel};
  const rtclient_callbacks callbacks{ot_fec_notif_handler, ot_fec_disconnect_handler,
                                     ot_fec_reconnect_handler};
  const int status = rtclient_init(parameters, callbacks, &client);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : init failed: %s", __func__, err_string(status));
  }
  return status;
}

void ot_fec_close() noexcept {
  if (client != nullptr) {
    rtclient_close(client);
    client = nullptr;
  }
  ot_fib_connection_up = 0;
}

int ot_fec_lookup(std::uint32_t prefix, std::uint32_t vrf_id, rtclient_result** ret) noexcept {
  OT_TRACE_DETAIL("(%s): ip %s vrf id %x", __func__, in_addr_s(prefix), vrf_id);
  *ret = nullptr;
  const int status =
      rtclient_lookup(client, fib_family_ipv4, ot_tblx_vrf_id_2_table_id(vrf_id), prefix, ret);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : rtclient_lookup failed for %s vrf id %x: %s", __func__,
                   in_addr_s(prefix), vrf_id, err_string(status));
  }
  return status;
}

int ot_fec_register(std::uint32_t prefix, std::uint32_t mask, std::uint32_t vrf_id) noexcept {
  if (prefix == 0 || ot_fib_connection_up == 0) {
    return invalid_argument;
  }
  OT_TRACE_DETAIL("(%s) : ip %s/%s vrf id %x", __func__, in_addr_s(prefix), in_addr_s(mask),
                  vrf_id);
  const rtclient_registration request = registration(prefix, mask, vrf_id);
  const int status = rtclient_bulk_reg_notif(client, {&request, 1});
  if (status == status_ok || status == fib_already_registered) {
    return status_ok;
  }
  OT_TRACE_ERROR("(%s) : rtclient_bulk_reg_notif fail for %s/%s vrf id %x: %s", __func__,
                 in_addr_s(prefix), in_addr_s(mask), vrf_id, err_string(status));
  return status;
}

int ot_fec_unregister(std::uint32_t prefix, std::uint32_t mask, std::uint32_t vrf_id) noexcept {
  if (ot_fib_connection_up == 0) {
    return invalid_argument;
  }
  if (vrf_id == 0) {
    return status_ok;
  }
  const rtclient_registration request = registration(prefix, mask, vrf_id);
  const int status = rtclient_bulk_unreg_notif(client, {&request, 1});
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : rtclient_bulk_unreg_notif failed for ip %s/%s vrf id %x - %s", __func__,
                   in_addr_s(prefix), in_addr_s(mask), vrf_id, err_string(status));
  }
  return status;
}

// An address of the router's own is reachable as a host route, whatever route covers it.
track_state reachability_of(const rtclient_result* result, std::uint32_t mask) noexcept {
  const std::uint32_t length = ipv4_mask2prefixlen(mask);
  const bool up = result != nullptr && ((result->route_found && result->prefix_length == length) ||
                                        (result->own_address && length == host_length));
  return up ? track_state::up : track_state::down;
}

std::uint32_t ot_tblx_vrf_id_2_table_id(std::uint32_t vrf_id) noexcept {
  const std::uint32_t table_id =
      translate(tblx_shm_lookup_vrf, vrf_id, vmap_c_tbl_id_ipv4_ucast_dflt());
  trace_translation(__func__, table_id, vrf_id);
  return table_id;
}

std::uint32_t ot_tblx_table_id_2_vrf_id(std::uint32_t table_id) noexcept {
  const std::uint32_t vrf_id = translate(tblx_shm_lookup_tbl, table_id, vmap_c_vrf_id_dflt());
  trace_translation(__func__, table_id, vrf_id);
  return vrf_id;
}

void ot_fec_notif_handler(const rtclient_notification* notification) {
  OT_TRACE_DETAIL("(%s) ", __func__);
  const robust_lock lock(notification_mutex, __func__);
  if (notification->family != fib_family_ipv4) {
    return;
  }
  const std::uint32_t prefix = notification->prefix;
  const std::uint32_t vrf_id = ot_tblx_table_id_2_vrf_id(notification->table_id);
  OT_TRACE_DETAIL("(%s) got notification for %s vrf id %x", __func__, in_addr_s(prefix), vrf_id);
  fib_result result;
  if (ot_fec_lookup(prefix, vrf_id, result.out()) != status_ok) {
    return;
  }
  const vrf_text vrf = ot_vmap_vrf_id_2_vrf_name(vrf_id);
  const std::uint32_t mask = ipv4_prefixlen2mask(notification->prefix_length);
  const route_entry* entry = hash_db_get_route_item(prefix, mask, vrf.c_str());
  if (entry == nullptr) {
    OT_TRACE_ERROR("(%s) : route %s/%d vrf %s not found", __func__, in_addr_s(prefix),
                   static_cast<int>(notification->prefix_length), vrf.c_str());
    return;
  }
  if (result.get() == nullptr) {
    return;
  }
  const track_state reachability = reachability_of(result.get(), mask);
  if (!is_known_everywhere(*entry, reachability)) {
    object_tracking_change_route_state(prefix, mask, vrf.c_str(), reachability);
  }
}

void ot_fec_disconnect_handler() {
  OT_TRACE_DETAIL("(%s) : ", __func__);
  ot_fib_connection_up = 0;
  note_connection(router_service::fib, false);
}

void ot_fec_reconnect_handler() {
  OT_TRACE_DETAIL("(%s) ", __func__);
  ot_fib_connection_up = 1;
  note_connection(router_service::fib, true);
  if (register_known_routes() == status_ok) {
    replay_pending_routes();
  }
}

}  // namespace ot
