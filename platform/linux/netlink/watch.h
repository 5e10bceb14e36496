// The kernel's events, read on a loop. How much is read in a turn, and what an error of the socket
// means, is the same for everybody who follows events.
//
// An urgent watch is read before all other sources of its loop that wait. When its events do not
// end it takes turns with them.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>

#include "platform/evm.h"
#include "platform/linux/netlink/socket.h"

namespace ot {

enum class netlink_turn { usual, urgent };

class netlink_watch {
 public:
  // All get the context. None but `message` may be called with the read buffer in use, so the
  // others may ask the kernel.
  struct handlers {
    netlink_visit message;
    // After each read: whether there is room for what another one brings. Null: always.
    bool (*room)(void* context);
    // After the reads of a turn.
    void (*taken)(void* context);
    // After `taken`: events were lost (ENOBUFS, and nothing waits any more), or the socket is
    // broken (another errno value) and is not read from again. May close the watch or open it anew.
    void (*lost)(void* context, int status);
  };

  netlink_watch(const handlers& called, void* context) noexcept
      : handlers_(called), context_(context) {}
  ~netlink_watch() { close(); }
  netlink_watch(const netlink_watch&) = delete;
  netlink_watch& operator=(const netlink_watch&) = delete;

  // Opens the socket for events of `groups` (RTMGRP_* bits), anew if it was open. What happens from
  // here on is an event, but none is read before follow(). 0 or an errno value.
  int open(std::uint32_t groups) noexcept;
  // Has the events read on the manager's loop, which is this thread's. 0 or an errno value.
  int follow(evm* manager, netlink_turn turn = netlink_turn::usual) noexcept;
  void close() noexcept { source_ = sd_event_source_disable_unref(source_); }

  [[nodiscard]] int fd() const noexcept { return events_.fd(); }

 private:
  static int on_readable(sd_event_source* source, int fd, std::uint32_t events, void* self);
  void read();
  void take_turns() noexcept;

  handlers handlers_;
  void* context_;
  netlink_socket events_;
  sd_event_source* source_ = nullptr;
  netlink_turn turn_ = netlink_turn::usual;
  std::uint64_t last_turn_ = 0;  // the loop's iteration
  unsigned turns_in_a_row_ = 0;
};

}  // namespace ot
