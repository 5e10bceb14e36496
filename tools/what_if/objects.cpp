// One row a kind of object.
#include "tools/what_if/objects.h"

#include <algorithm>
#include <array>

#include "core/in_addr_text.h"
#include "platform/ipv4.h"
#include "platform/memory/bfd_controls.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "sources/probe/track.h"
#include "sources/route/table.h"
#include "state/timers.h"

namespace ot::what_if {

struct object_row {
  track_type type;
  void (router::*bring)(const ot_track& track, track_state state);

  static const std::array<object_row, 4> all;
};

const std::array<object_row, 4> object_row::all{{
    {track_type::interface, &router::bring_interface},
    {track_type::route, &router::bring_route},
    {track_type::probe, &router::bring_operation},
    {track_type::bfd, &router::bring_session},
}};

namespace {

constexpr std::uint32_t first_vrf_table = 1000;

// The interface of a path that ends in "Interface/NAME/destaddress"; empty for other paths.
std::string_view interface_of_session(std::string_view path) {
  constexpr std::string_view folder = "/Interface/";
  const std::size_t at = path.find(folder);
  if (at == std::string_view::npos) {
    return {};
  }
  path.remove_prefix(at + folder.size());
  return path.substr(0, path.find('/'));
}

}  // namespace

router::router(const std::vector<std::string>& paths) {
  field::reset();
  ledger_control_reset();
  field::bfd_engine_back();
  for (const std::string& path : paths) {
    const std::string_view name = interface_of_session(path);
    if (!name.empty() && interfaces_.emplace(name).second) {
      field::interface_added(name, false);
    }
  }
}

void router::bring(const ot_track& track, track_state state) {
  for (const object_row& row : object_row::all) {
    if (row.type == track.type) {
      (this->*row.bring)(track, state);
    }
  }
}

void router::bring_interface(const ot_track& track, track_state state) {
  const std::string_view name = track.object.interface.name.view();
  const bool is_there = interfaces_.contains(name);
  const bool up = state == track_state::up;
  if (name.empty() || (state == track_state::unknown && !is_there)) {
    return;
  }
  if (!is_there) {
    interfaces_.emplace(name);
    field::interface_added(name, up);
  } else if (up) {
    field::link_up(name);
  } else {
    field::link_down(name);
  }
}

// The table of that VRF, which is made when it is not there yet.
std::uint32_t router::table_of(std::string_view vrf) {
  if (vrf == default_vrf) {
    return field::main_table;
  }
  const auto found = std::find(vrfs_.begin(), vrfs_.end(), vrf);
  const auto number = first_vrf_table + static_cast<std::uint32_t>(found - vrfs_.begin());
  if (found == vrfs_.end()) {
    vrfs_.emplace_back(vrf);
    field::vrf_added(vrf, number, number);
  }
  return number;
}

void router::bring_route(const ot_track& track, track_state state) {
  const route_object& route = track.object.route;
  if (route.ip_configured == 0) {
    return;
  }
  const std::uint32_t table = table_of(route.vrf.view());
  const std::uint32_t length = ipv4_mask2prefixlen(route.mask);
  if (state == track_state::up) {
    field::route_added(in_addr_s(route.prefix), length, "assumed", table);
  } else {
    field::route_removed(in_addr_s(route.prefix), length, table);
  }
}

void router::bring_operation(const ot_track& track, track_state state) {
  const std::uint32_t operation = track.object.probe.operation_id;
  if (state == track_state::unknown) {
    field::probe_stopped(operation);
  } else {
    field::probe_result(operation, state == track_state::up ? 1 : 2);
  }
}

void router::bring_session(const ot_track& track, track_state state) {
  const bfd_object& session = track.object.bfd;
  const char* address = in_addr_s(session.destination);
  if (state == track_state::up) {
    field::bfd_peer_answers(session.interface.view(), address);
  } else {
    field::bfd_peer_silent(session.interface.view(), address);
  }
}

void poll_once(ot_track& track) {
  if (track.poll_timer != nullptr) {
    const track_name name = track.name;
    ot_prb_read_shm_after_timer_expired(name.c_str(), 0);
    poll_no_more(track);
  }
}

void poll_no_more(ot_track& track) {
  stop_ot_timer(track.poll_timer);
}

}  // namespace ot::what_if
