// The places of FRR's control socket: its run directory by its present name and by its old one. A
// socket that is left of an engine that has died refuses connections, so only a connection proves
// an engine.
#include "platform/linux/bfd/engine_socket.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <new>

#include "platform/bfd_client.h"
#include "platform/common/root_path.h"
#include "platform/linux/unix_address.h"

namespace ot {

std::vector<std::string> bfd_engine_paths() {
  const char* chosen = std::getenv("OT_BFDD_SOCKET");
  if (chosen != nullptr && *chosen != '\0') {
    return {chosen};
  }
  return {root_path("/run/frr/bfdd.sock"), root_path("/var/run/frr/bfdd.sock")};
}

unique_fd bfd_engine_connect(const std::string& path) noexcept {
  sockaddr_un address;
  if (!unix_address(path, &address)) {
    errno = ENAMETOOLONG;
    return {};
  }
  unique_fd connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!connection.valid() ||
      connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return {};
  }
  return connection;
}

bool bfdc_service_present() noexcept {
  try {
    const std::vector<std::string> paths = bfd_engine_paths();
    return std::any_of(paths.begin(), paths.end(),
                       [](const std::string& path) { return bfd_engine_connect(path).valid(); });
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace ot
