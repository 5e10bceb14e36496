// Sockets as /proc/net/udp lists them for the namespace of the thread, by local address and port,
// user and inode. A socket for both families is in the list of IPv6 only, and is not seen: speakers
// of BFD open one for each family.
#include "platform/linux/bfd/own/port_owners.h"

#include <pwd.h>
#include <sys/stat.h>

#include <cstdio>
#include <memory>

namespace ot::bfd {
namespace {

struct close_file {
  void operator()(FILE* file) const noexcept { std::fclose(file); }
};

ino_t inode_of(int fd) noexcept {
  struct stat status {};
  return fd >= 0 && fstat(fd, &status) == 0 ? status.st_ino : 0;
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
  const std::unique_ptr<FILE, close_file> file{std::fopen(path, "re")};
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

std::optional<uid_t> other_port_owner(std::uint16_t port, int own) noexcept {
  return other_in("/proc/thread-self/net/udp", port, inode_of(own));
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
