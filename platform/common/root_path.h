// Where an instance lives: OT_ROOT stands before every absolute path that the programs use at run
// time, OT_PKG_ROOT before "/pkg/...". Both are empty on an installed router.
#pragma once

#include <string>
#include <string_view>

namespace ot {

std::string root_path(std::string_view absolute);
std::string pkg_path(std::string_view absolute);

}  // namespace ot
