// A running service that follows routes of the in-memory FIB: addresses as text, and the items of
// route tracks.
#pragma once

#include <string>

#include "platform/ipv4.h"
#include "platform/memory/controls.h"
#include "platform/vrf_service.h"
#include "sources/route/fib.h"
#include "sources/route/table.h"
#include "sources/route/track.h"
#include "tests/support/ip_address.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {

class route_service : public running_service {
 protected:
  static constexpr const char* net = "10.1.0.0";
  static constexpr std::uint32_t blue_id = 0x60000007;
  static constexpr std::uint32_t blue_table = 100;

  static std::string address_item(const std::string& track) {
    return track_path(track, "type/route/0x2/info/ip_address");
  }
  static std::string vrf_item(const std::string& track) {
    return track_path(track, "type/route/0x2/info/vrf");
  }
  // Commits the item of the track; the commit's result.
  int set_address(const std::string& track, const char* prefix, std::uint32_t length) {
    return commit({set_tuple(address_item(track), {ip(prefix), ipv4_prefixlen2mask(length)})});
  }
  int set_vrf(const std::string& track, std::string_view vrf) {
    return commit({set_text(vrf_item(track), vrf)});
  }

  // The create function itself, for an address of 16 bits (in a VRF) and for a VRF alone.
  static int create(const char* track, const char* vrf = nullptr, const char* prefix = net) {
    return object_tracking_type_route_create(track, vrf, ip(prefix), ipv4_prefixlen2mask(16), true);
  }
  static int create_vrf_only(const char* track, const char* vrf) {
    return object_tracking_type_route_create(track, vrf, 0, 0, false);
  }

  static route_entry* entry(const char* vrf = "default", const char* prefix = net,
                            std::uint32_t length = 16) {
    return hash_db_get_route_item(ip(prefix), ipv4_prefixlen2mask(length), vrf);
  }
  static text_lines followers(const route_entry* route) {
    text_lines names;
    for (const auto* node = route == nullptr ? nullptr : route->tracks; node != nullptr;
         node = node->next) {
      names.emplace_back(node->name.view());
    }
    return names;
  }

  static void fib_down() {
    field::fib_gone();
    field::run_pending();
  }
  static void fib_up() {
    field::fib_back();
    field::run_pending();
  }
  static void add_blue() {
    field::vrf_added("blue", blue_id, blue_table);
    field::run_pending();
  }
};

}  // namespace ot::test
