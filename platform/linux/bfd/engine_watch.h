// Notices that the BFD engine's control socket has been made, so that an engine that starts is
// connected at once and one that is away costs next to no wake-ups.
#pragma once

#include <systemd/sd-event.h>

#include <string>
#include <vector>

#include "platform/event_manager.h"
#include "platform/linux/unique_fd.h"

namespace ot {

class bfd_engine_watch {
 public:
  using appeared_func = void (*)(void* owner) noexcept;

  bfd_engine_watch(appeared_func appeared, void* owner) noexcept
      : appeared_(appeared), owner_(owner) {}
  ~bfd_engine_watch();
  bfd_engine_watch(const bfd_engine_watch&) = delete;
  bfd_engine_watch& operator=(const bfd_engine_watch&) = delete;

  // Watches the directories of `paths` or what there is of them; to be repeated when something has
  // appeared. Without the means to watch, the client's own attempts remain.
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

}  // namespace ot
