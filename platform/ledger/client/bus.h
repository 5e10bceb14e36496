// sd-bus as used by both ends of the ledger's socket.
#pragma once

#include <systemd/sd-bus.h>

#include <cstddef>
#include <memory>
#include <span>

namespace ot {

struct bus_closer {
  void operator()(sd_bus* bus) const noexcept { sd_bus_close_unref(bus); }
};
using bus_handle = std::unique_ptr<sd_bus, bus_closer>;

struct message_closer {
  void operator()(sd_bus_message* message) const noexcept { sd_bus_message_unref(message); }
};
using message_handle = std::unique_ptr<sd_bus_message, message_closer>;

// The bytes of a message of ours; false when it carries something else.
inline bool ledger_message_body(sd_bus_message* message, std::span<const std::byte>& ret) noexcept {
  const void* data = nullptr;
  std::size_t length = 0;
  if (sd_bus_message_read_array(message, 'y', &data, &length) < 0) {
    return false;
  }
  ret = {static_cast<const std::byte*>(data), length};
  return true;
}

}  // namespace ot
