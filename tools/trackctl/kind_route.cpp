// "set NAME route PREFIX/LEN [--vrf V]": the track follows the reachability of exactly that route.
#include <array>
#include <memory>
#include <string>

#include "platform/path_tuple.h"
#include "tools/trackctl/failure.h"
#include "tools/trackctl/route_prefix.h"
#include "tools/trackctl/track_kind.h"

namespace ot::trackctl {
namespace {

item_value address_value(const route_prefix& prefix) {
  std::array<std::byte, 16> bytes{};
  std::size_t length = 0;
  check_code("packing the address",
             path_tuple_pack(bytes, &length, "%N%N", prefix.address, prefix.mask));
  return {ledger_kind::tuple, {bytes.begin(), bytes.begin() + static_cast<long>(length)}};
}

}  // namespace

items_reader define_route_kind(CLI::App& app) {
  auto prefix = std::make_shared<std::string>();
  auto vrf = std::make_shared<std::string>();
  app.add_option("PREFIX", *prefix, "the route, such as 192.0.2.0/24")->required();
  CLI::Option* vrf_option =
      app.add_option("--vrf", *vrf, "the VRF it is in; left out: the default");
  // The VRF stands before the address, so that a restart looks the address up in it.
  return [prefix, vrf, vrf_option]() -> std::vector<config_item> {
    const route_prefix parsed = parse_route_prefix(*prefix);
    std::vector<config_item> items{{"type/route/0x2/a", u32_value(1)}};
    if (vrf_option->count() != 0) {
      check_vrf_name(*vrf);
      items.push_back({"type/route/0x2/info/vrf", text_value(*vrf)});
    }
    items.push_back({"type/route/0x2/info/ip_address", address_value(parsed)});
    return items;
  };
}

}  // namespace ot::trackctl
