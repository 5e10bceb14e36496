// bfdd's live log, which tells at once that a session has changed its state. Loop's thread.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>

#include "platform/evm.h"
#include "platform/linux/bfd/frr_vty/log_message.h"
#include "platform/linux/unique_fd.h"

namespace ot::bfd::vty {

class monitor {
 public:
  // Whom the monitor notifies. Neither function closes it.
  class owner {
   public:
    virtual void session_moved(const session_move& move) noexcept = 0;
    // Messages have been lost: what is known of the sessions may be old. After the log's end, or
    // when what it delivers is none, it is closed, too.
    virtual void log_lost() noexcept = 0;

   protected:
    ~owner() = default;
  };

  explicit monitor(owner& notified) noexcept : owner_(notified) {}
  ~monitor() { close(); }
  monitor(const monitor&) = delete;
  monitor& operator=(const monitor&) = delete;

  // Reads the log from `descriptor` from now on. False when it cannot be one.
  [[nodiscard]] bool open(evm* manager, unique_fd descriptor) noexcept;
  void close() noexcept;
  [[nodiscard]] bool is_open() const noexcept { return log_.valid(); }
  // Notifies of what has come meanwhile.
  void drain() noexcept;

 private:
  static int on_readable(sd_event_source* source, int fd, std::uint32_t events, void* self);

  owner& owner_;
  unique_fd log_;
  sd_event_source* readable_ = nullptr;
};

}  // namespace ot::bfd::vty
