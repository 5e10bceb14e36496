// The prefixes of an instance come from the environment, so that several live side by side.
#include "platform/common/root_path.h"

#include <cstdlib>

namespace ot {
namespace {

std::string prefixed(const char* variable, std::string_view absolute) {
  const char* prefix = std::getenv(variable);
  std::string path(prefix == nullptr ? "" : prefix);
  path += absolute;
  return path;
}

}  // namespace

std::string root_path(std::string_view absolute) {
  return prefixed("OT_ROOT", absolute);
}

std::string pkg_path(std::string_view absolute) {
  return prefixed("OT_PKG_ROOT", absolute);
}

}  // namespace ot
