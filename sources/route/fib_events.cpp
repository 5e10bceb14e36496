// The three callbacks of the FIB client. A mutex of its own serialises the notification handler.

#include "sources/route/fib_events.h"

#include "core/connections.h"
#include "core/debug.h"
#include "core/in_addr_text.h"
#include "platform/ipv4.h"
#include "platform/robust_mutex.h"
#include "platform/status.h"
#include "sources/route/changes.h"
#include "sources/route/fib_connection.h"
#include "sources/route/pending.h"
#include "sources/route/table.h"
#include "sources/route/vrf_connection.h"

namespace ot {
namespace {

robust_mutex notification_mutex;

// The first failure ends the walk.
int register_known_routes() noexcept {
  for (auto* entry = hash_db_first_data<route_entry>(ipv4_route_table); entry != nullptr;
       entry = hash_db_next_data<route_entry>(ipv4_route_table)) {
    if (entry->vrf_id == 0) {
      continue;
    }
    const int status = ot_fec_register(entry->prefix, entry->mask, entry->vrf_id);
    if (status != status_ok) {
      OT_TRACE_ERROR("(%s) : ot_fec_register for ip %s/%s vrf %s failed - %s",
                     "ot_fec_reconnect_handler", in_addr_s(entry->prefix), in_addr_s(entry->mask),
                     entry->vrf.c_str(), err_string(status));
      return status;
    }
  }
  return status_ok;
}

}  // namespace

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
  if (static_cast<std::uint32_t>(reachability) != entry->reach_state) {
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
