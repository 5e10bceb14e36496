// The watch on the directories in which the BFD engine makes its control socket, or for as long as
// they are not there, on the nearest above them (inotify).
#include "platform/linux/bfd/engine_watch.h"

#include <sys/inotify.h>

#include <algorithm>
#include <filesystem>

#include "platform/linux/loop/sd_event.h"

namespace ot {
namespace {

constexpr std::uint32_t made = IN_CREATE | IN_MOVED_TO | IN_ATTRIB;

}  // namespace

bfd_engine_watch::~bfd_engine_watch() {
  sd_event_source_disable_unref(readable_);
}

bool bfd_engine_watch::open(evm* manager) noexcept {
  if (!notices_.valid()) {
    notices_ = unique_fd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  }
  return notices_.valid() &&
         (readable_ != nullptr || sd_event_add_io(evm_sd_event(manager), &readable_, notices_.get(),
                                                  EPOLLIN, on_readable, this) >= 0);
}

void bfd_engine_watch::look_for(evm* manager, const std::vector<std::string>& paths) {
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
      watched = inotify_add_watch(notices_.get(), awaited.c_str(), made) >= 0;
    }
  }
}

bool bfd_engine_watch::wanted(const char* name) const noexcept {
  return std::find(names_.begin(), names_.end(), std::string_view{name}) != names_.end();
}

int bfd_engine_watch::on_readable(sd_event_source* /*source*/, int fd, std::uint32_t /*events*/,
                                  void* self) {
  auto* watch = static_cast<bfd_engine_watch*>(self);
  alignas(inotify_event) char bytes[4096];
  const ssize_t length = read(fd, bytes, sizeof bytes);
  bool appeared = false;
  for (ssize_t at = 0; at + static_cast<ssize_t>(sizeof(inotify_event)) <= length;) {
    const auto* notice = reinterpret_cast<const inotify_event*>(bytes + at);
    appeared = appeared || (notice->len > 0 && watch->wanted(notice->name));
    at += static_cast<ssize_t>(sizeof *notice + notice->len);
  }
  if (appeared) {
    watch->appeared_(watch->owner_);
  }
  return 0;
}

}  // namespace ot
