// Sockets by local port, user and inode: as the kernel's socket diagnosis tells of those on one
// port, or, from a kernel built without that, as /proc/net/udp lists them all. A socket for both
// families counts as one of IPv6 in both, and is not seen: speakers of BFD open one for each
// family.
#include "platform/linux/bfd/own/port_owners.h"

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/sock_diag.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "platform/linux/file_stream.h"
#include "platform/linux/netlink/socket.h"

namespace ot::bfd {
namespace {

ino_t inode_of(int fd) noexcept {
  struct stat status {};
  return fd >= 0 && fstat(fd, &status) == 0 ? status.st_ino : 0;
}

// The answer to a question about one port.
struct diagnosis {
  std::uint16_t port;  // network byte order, as in what the kernel tells
  ino_t own;
  std::optional<uid_t> other;
};

// A kernel that does not know the filter tells of all sockets.
void take_socket(void* context, const nlmsghdr& message) {
  auto& answer = *static_cast<diagnosis*>(context);
  if (message.nlmsg_len < NLMSG_LENGTH(sizeof(inet_diag_msg))) {
    return;
  }
  const auto& told = *static_cast<const inet_diag_msg*>(NLMSG_DATA(&message));
  if (told.id.idiag_sport == answer.port &&
      told.idiag_inode != static_cast<std::uint32_t>(answer.own)) {
    answer.other = told.idiag_uid;
  }
}

struct listed_socket {
  unsigned port = 0;
  unsigned user = 0;
  unsigned long inode = 0;
};

bool read_line(const char* line, listed_socket* ret) noexcept {
  return std::sscanf(line, " %*u: %*[0-9A-F]:%x %*s %*x %*s %*s %*s %u %*u %lu", &ret->port,
                     &ret->user, &ret->inode) == 3;
}

std::optional<uid_t> other_in(const char* path, std::uint16_t port, ino_t own) noexcept {
  const file_stream file{std::fopen(path, "re")};
  char line[512];
  while (file != nullptr && std::fgets(line, sizeof line, file.get()) != nullptr) {
    listed_socket listed;
    if (read_line(line, &listed) && listed.port == port && listed.inode != own) {
      return listed.user;
    }
  }
  return std::nullopt;
}

}  // namespace

int diagnosed_port_owner(std::uint16_t port, int own, std::optional<uid_t>* ret) noexcept {
  netlink_socket kernel;
  if (const int status = kernel.open_requests(NETLINK_SOCK_DIAG); status != 0) {
    return status;
  }
  netlink_request request;
  nlmsghdr* message = mnl_nlmsg_put_header(request.bytes);
  message->nlmsg_type = SOCK_DIAG_BY_FAMILY;
  message->nlmsg_flags = NLM_F_DUMP;
  auto* question =
      static_cast<inet_diag_req_v2*>(mnl_nlmsg_put_extra_header(message, sizeof(inet_diag_req_v2)));
  *question = inet_diag_req_v2{};
  question->sdiag_family = AF_INET;
  question->sdiag_protocol = IPPROTO_UDP;
  question->idiag_states = UINT32_MAX;  // connected or not
  question->id.idiag_sport = htons(port);
  diagnosis answer{question->id.idiag_sport, inode_of(own), std::nullopt};
  const int status = kernel.request(message, take_socket, &answer);
  if (status == 0) {
    *ret = answer.other;
  }
  return status;
}

std::optional<uid_t> listed_port_owner(std::uint16_t port, int own) noexcept {
  return other_in("/proc/thread-self/net/udp", port, inode_of(own));
}

std::optional<uid_t> port_owners::other(std::uint16_t port, int own) noexcept {
  std::optional<uid_t> found;
  const int status = kernel_answers_ ? diagnosed_port_owner(port, own, &found) : ENOENT;
  if (status == 0) {
    return found;
  }
  // Each question to a kernel that lacks it would have it look for its module again.
  kernel_answers_ = status != ENOENT && status != EPROTONOSUPPORT;
  return listed_port_owner(port, own);
}

std::string user_text(uid_t user) {
  char buffer[1024];
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(user, &entry, buffer, sizeof buffer, &found) == 0 && found != nullptr) {
    return found->pw_name;
  }
  return std::to_string(user);
}

}  // namespace ot::bfd
