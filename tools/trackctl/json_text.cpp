#include "tools/trackctl/json_text.h"

#include "tools/json.h"

namespace ot::trackctl {

std::string json_text(const nlohmann::ordered_json& value) {
  return value.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + '\n';
}

std::string json_line(const nlohmann::ordered_json& value) {
  return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace ot::trackctl
