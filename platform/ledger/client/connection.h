// Reaching the service's socket, and what an answer carries: what the client's calls share.
#pragma once

#include <cstdint>
#include <span>

#include "platform/ledger.h"
#include "platform/ledger/client/bus.h"
#include "platform/linux/unique_fd.h"

namespace ot {

// A reply and the bytes in it.
struct ledger_reply {
  message_handle message;
  std::span<const std::byte> body;
};

// A connected socket, invalid with errno. It waits at most so long (0: not at all) for a service
// whose queue of connections is full. Throws std::bad_alloc.
unique_fd ledger_connect(std::uint64_t limit_us);

// Takes the socket over and introduces itself, without waiting for the other end to do so. 0 or a
// negative errno.
int ledger_start_bus(unique_fd socket, bus_handle& ret) noexcept;

// The status code of an errno: for a connection that was not made, or that ended under way; and for
// one that was made and then not served.
int ledger_status_of_errno(int error) noexcept;
int ledger_status_of_start(int error) noexcept;

// A request for one member, with these bytes. 0 or a negative errno.
int ledger_make_request(sd_bus* bus, const char* member, std::span<const std::byte> body,
                        message_handle& ret) noexcept;

// The status that the service answered with, and what it sent behind it.
int ledger_read_reply(message_handle message, ledger_reply& ret) noexcept;

// The one value of a reply. 0 or a status code.
int ledger_read_value(const ledger_reply& reply, ledger_value& ret);

}  // namespace ot
