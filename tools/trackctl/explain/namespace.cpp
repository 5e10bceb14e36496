// Whoever listens on the ledger's socket is the service, and the kernel knows its process.
#include "tools/trackctl/explain/namespace.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/common/root_path.h"
#include "platform/ledger/messages.h"
#include "platform/linux/unique_fd.h"
#include "platform/linux/unix_address.h"

namespace ot::trackctl::explain {
namespace {

// 0 when it cannot be found out.
pid_t process_of_service() {
  const unique_fd socket_of_ours(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  ucred peer{};
  socklen_t size = sizeof peer;
  const bool found = unix_address(root_path(ledger_socket_path), &address) &&
                     connect(socket_of_ours.get(), reinterpret_cast<const sockaddr*>(&address),
                             sizeof address) == 0 &&
                     getsockopt(socket_of_ours.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0;
  return found ? peer.pid : 0;
}

}  // namespace

std::string enter_namespace_of_service() {
  const pid_t service = process_of_service();
  if (service == 0) {
    return {};
  }
  const std::string path = "/proc/" + std::to_string(service) + "/ns/net";
  struct stat theirs {};
  struct stat ours {};
  if (stat(path.c_str(), &theirs) != 0 || stat("/proc/self/ns/net", &ours) != 0 ||
      (theirs.st_dev == ours.st_dev && theirs.st_ino == ours.st_ino)) {
    return {};  // the same, or, without the right to see it, most likely the same
  }
  const unique_fd other(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (other.valid() && setns(other.get(), CLONE_NEWNET) == 0) {
    return {};
  }
  return "it cannot be seen from here: the service runs in another network namespace, which only "
         "root may enter";
}

}  // namespace ot::trackctl::explain
