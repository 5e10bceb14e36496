// The places of FRR's control socket: its run directory by its present name and by its old one.
#include "platform/linux/bfd_engine_paths.h"

#include <cstdlib>

#include "platform/common/root_path.h"

namespace ot {

std::vector<std::string> bfd_engine_paths() {
  const char* chosen = std::getenv("OT_BFDD_SOCKET");
  if (chosen != nullptr && *chosen != '\0') {
    return {chosen};
  }
  return {root_path("/run/frr/bfdd.sock"), root_path("/var/run/frr/bfdd.sock")};
}

}  // namespace ot
