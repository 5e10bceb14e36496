// "set NAME interface IFNAME": the track follows the line protocol of one interface, which need not
// exist yet.
#include <memory>
#include <string>

#include "tools/json.h"
#include "tools/trackctl/kinds/kinds.h"
#include "tools/trackctl/names.h"

namespace ot::trackctl {
namespace {

items_reader define(command_line& app) {
  auto name = std::make_shared<std::string>();
  app.add_option("IFNAME", *name, "the interface, by the name `ip link` lists").required();
  return [name]() -> std::vector<config_item> {
    check_interface_name(*name);
    return {{"type/interface/0x1/a", u32_value(1)},
            {"type/interface/0x1/info/interface", text_value(*name)}};
  };
}

std::string write(const track_items& items, std::string_view /*folder*/,
                  const member_order& /*order*/) {
  const std::string name = item_text(items, "type/interface/0x1/info/interface");
  return (name.starts_with('-') ? "-- " : "") + name;
}

nlohmann::ordered_json object(const track_type_info& info) {
  return {{"interface", info.InterfaceTracks.InterfaceName.view()}};
}

}  // namespace

constinit const track_kind interface_kind{
    .word = "interface",
    .type = track_type::interface,
    .folder = "type/interface/0x1/",
    .summary = "the line protocol of an interface",
    .arguments = "IFNAME",
    .example = "uplink interface eth0 --delay-up 5",
    .define = define,
    .write = write,
    .object = object,
    .service = {"interfaces", "interface manager", "interface that is not there",
                "interfaces that are not there"}};

}  // namespace ot::trackctl
