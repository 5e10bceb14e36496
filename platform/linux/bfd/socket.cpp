// A socket that is left of an engine that has died refuses connections, so only a connection proves
// an engine. Watched (inotify) are the directories in which the engine makes its socket, or for as
// long as they are not there, the nearest above them.
#include "platform/linux/bfd/socket.h"

#include <sys/inotify.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "platform/linux/loop/sd_event.h"
#include "platform/linux/unix_address.h"

namespace ot::bfd {
namespace {

constexpr std::uint32_t made = IN_CREATE | IN_MOVED_TO | IN_ATTRIB;
// The watch of a directory ends with it, and the name then stands for another one or for none.
constexpr std::uint32_t ended = IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED;

}  // namespace

unique_fd engine_connect(const std::string& path) noexcept {
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

socket_watch::~socket_watch() {
  sd_event_source_disable_unref(readable_);
}

bool socket_watch::open(evm* manager) noexcept {
  if (!notices_.valid()) {
    notices_ = unique_fd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  }
  return notices_.valid() &&
         (readable_ != nullptr || sd_event_add_io(evm_sd_event(manager), &readable_, notices_.get(),
                                                  EPOLLIN, on_readable, this) >= 0);
}

void socket_watch::look_for(evm* manager, const std::vector<std::string>& paths) {
  if (!open(manager)) {
    return;
  }
  names_.clear();
  for (const std::string& path : paths) {
    std::filesystem::path awaited{path};
    bool watched = false;
    while (!watched && awaited.has_relative_path()) {
      names_.push_back(awaited.filename());
      awaited = awaited.parent_path();
      watched = inotify_add_watch(notices_.get(), awaited.c_str(), made | ended) >= 0;
    }
  }
}

bool socket_watch::wanted(const char* name) const noexcept {
  return std::find(names_.begin(), names_.end(), std::string_view{name}) != names_.end();
}

int socket_watch::on_readable(sd_event_source* /*source*/, int fd, std::uint32_t /*events*/,
                              void* self) {
  auto* watch = static_cast<socket_watch*>(self);
  alignas(inotify_event) char bytes[4096];
  const ssize_t length = read(fd, bytes, sizeof bytes);
  bool appeared = false;
  for (ssize_t at = 0; at + static_cast<ssize_t>(sizeof(inotify_event)) <= length;) {
    const auto* notice = reinterpret_cast<const inotify_event*>(bytes + at);
    appeared =
        appeared || (notice->mask & ended) != 0 || (notice->len > 0 && watch->wanted(notice->name));
    at += static_cast<ssize_t>(sizeof *notice + notice->len);
  }
  if (appeared) {
    watch->appeared_(watch->owner_);
  }
  return 0;
}

}  // namespace ot::bfd
