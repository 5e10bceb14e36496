// sd-bus as used by both ends of the ledger's socket.
#pragma once

#include <systemd/sd-bus.h>

#include <cerrno>
#include <cstddef>
#include <memory>
#include <span>

#include "platform/ledger_status.h"

namespace ot {

struct bus_closer {
  void operator()(sd_bus* bus) const noexcept { sd_bus_close_unref(bus); }
};
using bus_handle = std::unique_ptr<sd_bus, bus_closer>;

struct message_closer {
  void operator()(sd_bus_message* message) const noexcept { sd_bus_message_unref(message); }
};
using message_handle = std::unique_ptr<sd_bus_message, message_closer>;

// The bytes of a message of ours. 0, no_memory, or ledger_bad_message when it carries something
// else.
inline int ledger_message_body(sd_bus_message* message, std::span<const std::byte>& ret) noexcept {
  const void* data = nullptr;
  std::size_t length = 0;
  const int result = sd_bus_message_read_array(message, 'y', &data, &length);
  if (result < 0) {
    return result == -ENOMEM ? no_memory : ledger_bad_message;
  }
  ret = {static_cast<const std::byte*>(data), length};
  return status_ok;
}

}  // namespace ot
