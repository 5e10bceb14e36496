// Reaching a socket of FRR's bfdd, and noticing that it has been made.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/evm.h"
#include "platform/linux/unique_fd.h"

namespace ot::bfd {

// A connection that never blocks; invalid, with errno set, when nobody listens at `path`.
unique_fd engine_connect(const std::string& path) noexcept;

// Notices that the socket has been made, so that an engine that starts is connected at once and one
// that is away costs next to no wake-ups.
class socket_watch {
 public:
  using appeared_func = void (*)(void* owner) noexcept;

  socket_watch(appeared_func appeared, void* owner) noexcept : appeared_(appeared), owner_(owner) {}
  ~socket_watch();
  socket_watch(const socket_watch&) = delete;
  socket_watch& operator=(const socket_watch&) = delete;

  // Watches the directories of `paths` or what there is of them; to be repeated when something has
  // appeared, or a directory was taken away, which is reported alike. Without the means to watch,
  // the client's own attempts remain.
  void look_for(evm* manager, const std::vector<std::string>& paths);

 private:
  static int on_readable(sd_event_source* source, int fd, std::uint32_t events, void* self);
  bool open(evm* manager) noexcept;
  [[nodiscard]] bool wanted(const char* name) const noexcept;

  appeared_func appeared_;
  void* owner_;
  unique_fd notices_;
  sd_event_source* readable_ = nullptr;
  std::vector<std::string> names_;  // awaited: of sockets and of missing directories
};

}  // namespace ot::bfd
