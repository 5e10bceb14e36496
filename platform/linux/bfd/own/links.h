// The interfaces of this namespace and their IPv4 addresses, as far as a BFD session needs them:
// over which link, and from which address, a neighbor is reached. Loop's thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/common/bfd/speaker.h"
#include "platform/linux/bfd/engine.h"
#include "platform/linux/bfd/timer.h"
#include "platform/linux/links/record.h"
#include "platform/linux/netlink/socket.h"
#include "platform/linux/netlink/watch.h"

namespace ot::bfd {

class local_links {
 public:
  using changed_func = void (*)(void* owner) noexcept;

  // `changed`: a way may be another one than before.
  local_links(changed_func changed, void* owner) noexcept : changed_(changed), owner_(owner) {}
  local_links(const local_links&) = delete;
  local_links& operator=(const local_links&) = delete;

  // Once, before the first opening. 0 or a status code.
  int attach(evm* manager) noexcept;
  // Reads all and follows the changes; what fails is tried again. Nothing is reported from inside.
  void open() noexcept;
  void close() noexcept;

  // The way to the session's neighbor; none with the reason in `ret_problem`, for the operator.
  [[nodiscard]] std::optional<neighbor_path> towards(const session_config& session,
                                                     std::string_view* ret_problem) const noexcept;

 private:
  struct local_address {
    std::uint32_t ifindex = 0;
    std::uint32_t address = 0;  // network byte order, as all
    std::uint32_t network = 0;  // of the neighbors on the link
    std::uint32_t mask = 0;

    friend bool operator==(const local_address&, const local_address&) = default;
  };

  static void on_event(void* self, const nlmsghdr& message);
  static void on_taken(void* self);
  static void on_lost(void* self, int status);

  static void try_again(void* self) noexcept;

  int start_anew() noexcept;
  int read_all() noexcept;
  int dump(std::uint16_t type) noexcept;
  void apply_link(const nlmsghdr& message);
  void apply_address(const nlmsghdr& message);
  [[nodiscard]] std::uint32_t source_on(std::uint32_t ifindex,
                                        const session_config& session) const noexcept;

  changed_func changed_;
  void* owner_;
  evm* manager_ = nullptr;
  bool news_ = false;  // since the last report
  loop_timer retry_{try_again, this};
  netlink_watch events_{{on_event, nullptr, on_taken, on_lost}, this};
  netlink_socket requests_;
  link_cache links_;
  std::vector<local_address> addresses_;  // in the kernel's order
};

}  // namespace ot::bfd
