// Rights by SO_PEERCRED and SO_PEERGROUPS: what the kernel noted when the other end connected.
#include "platform/ledger/server/access.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace ot {
namespace {

bool is_member(int socket, gid_t primary, gid_t members) noexcept {
  if (members == static_cast<gid_t>(-1)) {
    return false;
  }
  // A user in more groups than this counts by its primary one only.
  std::array<gid_t, 256> groups{};
  socklen_t bytes = sizeof groups;
  const bool known = getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &bytes) == 0;
  const auto end = groups.begin() + (known ? bytes / sizeof(gid_t) : 0);
  return primary == members || std::find(groups.begin(), end, members) != end;
}

}  // namespace

ledger_rights ledger_rights_of(int socket, gid_t members) noexcept {
  ucred peer{};
  socklen_t length = sizeof peer;
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) {
    return {};
  }
  if (peer.uid == 0 || peer.uid == geteuid()) {
    return {.read = true, .write = true};
  }
  const bool member = is_member(socket, peer.gid, members);
  return {.read = member, .write = member};
}

}  // namespace ot
