// "set NAME interface IFNAME": the track follows the line protocol of one interface, which need not
// exist yet.
#include <memory>
#include <string>

#include "tools/trackctl/names.h"
#include "tools/trackctl/track_kind.h"

namespace ot::trackctl {

items_reader define_interface_kind(CLI::App& app) {
  auto name = std::make_shared<std::string>();
  app.add_option("IFNAME", *name, "the interface, by the name `ip link` lists")->required();
  return [name]() -> std::vector<config_item> {
    check_interface_name(*name);
    return {{"type/interface/0x1/a", u32_value(1)},
            {"type/interface/0x1/info/interface", text_value(*name)}};
  };
}

}  // namespace ot::trackctl
