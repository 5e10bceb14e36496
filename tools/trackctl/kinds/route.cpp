// "set NAME route PREFIX/LEN [--vrf V]": the track follows the reachability of exactly that route.
#include <bit>
#include <memory>
#include <optional>
#include <string>

#include "tools/json.h"
#include "tools/trackctl/kinds/kinds.h"
#include "tools/trackctl/names.h"

namespace ot::trackctl {
namespace {

items_reader define(command_line& app) {
  auto prefix = std::make_shared<std::string>();
  auto vrf = std::make_shared<std::optional<std::string>>();
  app.add_option("PREFIX", *prefix, "the route, such as 192.0.2.0/24").required();
  app.add_option("--vrf", *vrf, "the VRF it is in; left out: the default");
  // The VRF stands before the address, so that a restart looks the address up in it.
  return [prefix, vrf]() -> std::vector<config_item> {
    const route_prefix parsed = parse_route_prefix(*prefix);
    std::vector<config_item> items{{"type/route/0x2/a", u32_value(1)}};
    if (*vrf) {
      check_vrf_name(**vrf);
      items.push_back({"type/route/0x2/info/vrf", text_value(**vrf)});
    }
    items.push_back({"type/route/0x2/info/ip_address", tuple_value({parsed.address, parsed.mask})});
    return items;
  };
}

std::string write(const track_items& items, std::string_view /*folder*/,
                  const member_order& /*order*/) {
  const auto [address, mask] = item_addresses(items, "type/route/0x2/info/ip_address");
  std::string text = address_text(address) + '/' + std::to_string(std::popcount(mask));
  if (const std::string vrf = item_text(items, "type/route/0x2/info/vrf"); !vrf.empty()) {
    text += " --vrf " + vrf;
  }
  return text;
}

nlohmann::ordered_json object(const track_type_info& info) {
  using json = nlohmann::ordered_json;
  const route_track_info__& route = info.RouteTracks;
  return {{"prefix", address_text(route.Prefix)},
          {"mask", address_text(route.PrefixLength)},
          {"vrf", route.VRF.view()},
          {"next_hop", route.NextHop.empty() ? json(nullptr) : json(route.NextHop.view())}};
}

}  // namespace

// Changes of a VRF are not seen when the names begin alike, so the track is made anew.
constinit const track_kind route_kind{
    .word = "route",
    .type = track_type::route,
    .folder = "type/route/0x2/",
    .summary = "the reachability of an IPv4 route of exactly this length",
    .arguments = "PREFIX/LEN [--vrf VRF]",
    .example = "customers route 192.0.2.0/24 --vrf red",
    .recreate_on_change = true,
    .define = define,
    .write = write,
    .object = object,
    .service = {"fib", "FIB", "route item to be applied", "route items to be applied"}};

}  // namespace ot::trackctl
