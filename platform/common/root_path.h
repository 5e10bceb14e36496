// Where an instance lives: OT_ROOT stands before every absolute path that the programs use at run
// time, OT_PKG_ROOT before "/pkg/...". Both are empty on an installed router; they come from the
// environment, so that several instances live side by side, and count for nothing in a program that
// was started with more rights than its caller has.
#pragma once

#include <stdlib.h>

#include <string>
#include <string_view>

namespace ot {

inline std::string prefixed_path(const char* variable, std::string_view absolute) {
  const char* prefix = secure_getenv(variable);
  std::string path(prefix == nullptr ? "" : prefix);
  path += absolute;
  return path;
}

inline std::string root_path(std::string_view absolute) {
  return prefixed_path("OT_ROOT", absolute);
}

inline std::string pkg_path(std::string_view absolute) {
  return prefixed_path("OT_PKG_ROOT", absolute);
}

}  // namespace ot
