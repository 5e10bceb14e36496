// The sockets: the kernel's events, and what is asked of it.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "platform/linux/netlink/socket.h"
#include "tools/daemon/loop.h"
#include "tools/trackpolicy/kernel/links.h"
#include "tools/trackpolicy/kernel/messages.h"
#include "tools/trackpolicy/kernel/route_keeper.h"

namespace ot::trackpolicy {

class kernel_access {
 public:
  // `readable` is called when events wait. 0 or an errno value.
  int open(sd_event* loop, std::function<void()> readable);
  // The same without events: only what is asked for.
  int open_requests();
  void close() noexcept { readable_ = {}; }

  // All events that wait: of interfaces and addresses, and of routes of ours or in place of others.
  // `visit` may not ask. False when some were lost.
  bool read_events(netlink_visit visit, void* context);
  // Whose changes those of an event with this number are.
  [[nodiscard]] std::uint32_t port() const noexcept { return requests_.port(); }

  // Waits until the change of interfaces is whole that the kernel is at. It announces such a change
  // before it has taken the routes away.
  void await_link_changes();
  // These return 0 or an errno value.
  int read_links(link_table& ret);
  int read_routes(std::vector<kernel_route>& ret);  // of ours
  int set_up(std::uint32_t index, bool up);

  // As route_kernel::carry_out.
  void carry_out(std::span<route_change> changes);

 private:
  int read_family(std::uint8_t family, std::vector<kernel_route>& ret);
  void send_some(std::span<route_change> changes);

  netlink_socket events_;
  netlink_socket requests_;
  loop_source readable_;
};

}  // namespace ot::trackpolicy
