// The two ways to a tied route track: configuration that names a track for the first time, and
// configuration that adds to one. Address and VRF arrive as separate items, in either order.

#include "sources/route/fib.h"
#include "sources/route/table.h"
#include "sources/route/track.h"
#include "sources/route/vrf.h"
#include "state/ledger_state.h"
#include "state/publication.h"
#include "state/track_record.h"

namespace ot {
namespace {

constexpr const char* create_name = "object_tracking_type_route_create";

// What an item says of the route.
struct route_item {
  const char* vrf;  // null: not said
  std::uint32_t prefix;
  std::uint32_t mask;
  bool has_address;
};

int look_up(const route_object& route, std::uint32_t vrf_id, track_state& ret) noexcept {
  fib_result result;
  const int status = traced_route_lookup(create_name, route.prefix, route.vrf.c_str(),
                                         ot_fec_lookup(route.prefix, vrf_id, result.out()));
  if (status == status_ok) {
    ret = reachability_of(result.get(), route.mask);
  }
  return status;
}

int register_route(const route_object& route, std::uint32_t vrf_id) noexcept {
  return traced_route_call(create_name, "ot_fec_register", route.prefix, route.mask,
                           route.vrf.c_str(), ot_fec_register(route.prefix, route.mask, vrf_id));
}

void set_address(route_object& route, const route_item& item) noexcept {
  route.prefix = item.prefix;
  route.mask = item.mask;
  route.ip_configured = 1;
}

// Ties the track of that name to its route's entry.
int tie(const char* name, const route_object& route, track_state state,
        std::uint32_t vrf_id) noexcept {
  return tie_track(name, create_name, "insert_track_to_route_entry",
                   [&route, state, vrf_id](track_name_node* node) noexcept {
                     return insert_track_to_route_entry(node, route.prefix, route.mask,
                                                        route.vrf.c_str(), state, vrf_id);
                   });
}

// --- A track that exists -------------------------------------------------------------------------

// Takes the item's VRF and address into the record. `ret_tie`: whether there is a route to tie to.
int take_over(ot_track& track, const route_item& item, bool& ret_tie) {
  ret_tie = false;
  if (track.type != track_type::route && track.type != track_type::none) {
    forget_object(track);
  }
  route_object& route = track.object.route;
  if (item.vrf != nullptr) {
    if (route.ip_configured != 0) {
      if (route.vrf == std::string_view{item.vrf}) {
        return status_ok;
      }
      const int status = delete_track_from_route_entry(track.name.c_str());
      if (status != status_ok) {
        return status;
      }
    }
    route.vrf.assign(item.vrf);
  }
  track.type = track_type::route;
  if (item.has_address) {
    set_address(route, item);
    if (route.vrf.empty()) {
      route.vrf.assign(default_vrf);
    }
  }
  ret_tie = route.ip_configured != 0;
  return status_ok;
}

// The look-up comes first here. A VRF that is not known yet has no routes: its tracks are down and
// nothing is registered until it appears.
int find_state(const route_object& route, std::uint32_t vrf_id, track_state& ret) noexcept {
  ret = track_state::down;
  if (vrf_id == 0) {
    return status_ok;
  }
  const int status = look_up(route, vrf_id, ret);
  return status == status_ok ? register_route(route, vrf_id) : status;
}

int add_to_track(ot_track& track, const route_item& item) {
  bool has_route = false;
  int status = take_over(track, item, has_route);
  if (status != status_ok || !has_route) {
    return status;
  }
  route_object& route = track.object.route;
  const std::uint32_t vrf_id = ot_vmap_vrf_name_2_vrf_id(route.vrf.c_str());
  if (vrf_id != vmap_c_vrf_id_dflt()) {
    status = ot_vmap_vrf_add(route.vrf.c_str(), &route.vrf_notification);
  }
  track_state state = track_state::down;
  if (status == status_ok) {
    status = find_state(route, vrf_id, state);
  }
  if (status != status_ok) {
    return status;
  }
  track.source_state = state;
  const track_name name = track.name;
  status = tie(name.c_str(), route, state, vrf_id);
  return status == status_ok ? object_tracking_set_track_state_in_ledger(name.c_str(), state)
                             : status;
}

// --- A new track ---------------------------------------------------------------------------------

// The registration comes first here.
int find_new_state(route_object& route, std::uint32_t vrf_id, track_state& ret) noexcept {
  ret = track_state::down;
  if (vrf_id == 0) {
    OT_TRACE_DETAIL("(%s) : vrf %s is not known yet", create_name, route.vrf.c_str());
    return ot_vmap_vrf_add(route.vrf.c_str(), &route.vrf_notification);
  }
  if (route.ip_configured == 0) {
    return status_ok;
  }
  const int status = register_route(route, vrf_id);
  return status == status_ok ? look_up(route, vrf_id, ret) : status;
}

int add_record(const char* name, const route_object& route, track_state state) noexcept {
  ot_track track;
  const int status = new_track_record(name, track_type::route, state, create_name, &track);
  if (status != status_ok) {
    return status;
  }
  track.object.route = route;
  take_over_published_state(track);
  return add_track_record(track, create_name);
}

int tie_new(const char* name, track_state state, std::uint32_t vrf_id) noexcept {
  route_object& route = hash_db_get_track_item(name)->object.route;
  if (route.ip_configured == 0) {
    return status_ok;
  }
  const int status = tie(name, route, state, vrf_id);
  if (status == status_ok && vrf_id != vmap_c_vrf_id_dflt()) {
    return ot_vmap_vrf_add(route.vrf.c_str(), &route.vrf_notification);
  }
  return status;
}

int make_track(const char* name, const route_item& item) {
  route_object route{};
  route.vrf.assign(item.vrf == nullptr ? default_vrf : item.vrf);
  if (item.has_address) {
    set_address(route, item);
  }
  const std::uint32_t vrf_id = ot_vmap_vrf_name_2_vrf_id(route.vrf.c_str());
  track_state state = track_state::down;
  int status = find_new_state(route, vrf_id, state);
  if (status == status_ok) {
    status = add_record(name, route, state);
  }
  if (status != status_ok) {
    ot_vmap_vrf_remove(route.vrf.c_str(), &route.vrf_notification);
    return status;
  }
  status = tie_new(name, state, vrf_id);
  return status == status_ok ? object_tracking_set_track_state_in_ledger(name, state) : status;
}

}  // namespace

int object_tracking_type_route_create(const char* name, const char* vrf_name, std::uint32_t prefix,
                                      std::uint32_t mask, bool has_address) {
  OT_TRACE_ENTRY();
  const route_item item{vrf_name, prefix, mask, has_address};
  ot_track* track = hash_db_get_track_item(name);
  return track == nullptr ? make_track(name, item) : add_to_track(*track, item);
}

}  // namespace ot
