// "set NAME probe OPERATION": the track follows the results of one operation of the probe service.
// The operation need not be running, nor the service.
#include <memory>
#include <string>

#include "tools/trackctl/names.h"
#include "tools/trackctl/track_kind.h"

namespace ot::trackctl {
namespace {

// The service shows operation 0 as none, and numbers beyond as negative ones.
constexpr number_range operation_range{.unit = "", .least = 1, .most = 2147483647};

}  // namespace

items_reader define_probe_kind(CLI::App& app) {
  auto operation = std::make_shared<std::string>();
  app.add_option("OPERATION", *operation, "the number of the probe operation, its id at qmond")
      ->required();
  return [operation]() -> std::vector<config_item> {
    return {{"type/prb/0x5/op_id",
             u32_value(parse_number("probe operation", *operation, operation_range))}};
  };
}

}  // namespace ot::trackctl
