// Nothing in here waits but a connect that is asked to.
#include "platform/ledger/client/connection.h"

#include <sys/time.h>

#include <cerrno>
#include <utility>

#include "platform/common/root_path.h"
#include "platform/ledger/messages.h"
#include "platform/linux/unix_address.h"

namespace ot {

int ledger_status_of_errno(int error) noexcept {
  switch (error) {
    case EACCES:
    case EPERM:
      return ledger_denied;
    case ENOMEM:
      return no_memory;
    case EMFILE:  // ours, and no word on the service
    case ENFILE:
      return error;
    case ETIMEDOUT:
    case EAGAIN:  // the service's queue of connections is full
      return ledger_no_answer;
    default:
      return ledger_unreachable;
  }
}

int ledger_status_of_start(int error) noexcept {
  const bool ended = error == ECONNRESET || error == EPIPE || error == ENOTCONN;
  return ended ? ledger_busy : ledger_status_of_errno(error);
}

unique_fd ledger_connect(std::uint64_t limit_us) {
  constexpr std::uint64_t second_us = 1'000'000;
  sockaddr_un address{};
  if (!unix_address(root_path(ledger_socket_path), &address)) {
    errno = ENAMETOOLONG;
    return {};
  }
  const int waits = limit_us == 0 ? SOCK_NONBLOCK : 0;
  unique_fd connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | waits, 0));
  if (!connection.valid()) {
    return {};
  }
  const timeval timeout{.tv_sec = static_cast<time_t>(limit_us / second_us),
                        .tv_usec = static_cast<suseconds_t>(limit_us % second_us)};
  setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
  int result = 0;
  do {
    result = connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  } while (result != 0 && errno == EINTR);
  if (result != 0) {
    const int error = errno;
    connection.reset();
    errno = error;
  }
  return connection;
}

int ledger_start_bus(unique_fd socket, bus_handle& ret) noexcept {
  sd_bus* made = nullptr;
  int result = sd_bus_new(&made);
  bus_handle bus{made};
  if (result >= 0) {
    result = sd_bus_set_fd(bus.get(), socket.get(), socket.get());
  }
  if (result < 0) {
    return result;
  }
  (void)socket.release();
  result = sd_bus_start(bus.get());
  if (result >= 0) {
    ret = std::move(bus);
  }
  return result;
}

int ledger_make_request(sd_bus* bus, const char* member, std::span<const std::byte> body,
                        message_handle& ret) noexcept {
  sd_bus_message* made = nullptr;
  int result =
      sd_bus_message_new_method_call(bus, &made, nullptr, ledger_object, ledger_interface, member);
  ret.reset(made);
  if (result >= 0) {
    result = sd_bus_message_append_array(made, 'y', body.data(), body.size());
  }
  return result;
}

int ledger_read_reply(message_handle message, ledger_reply& ret) noexcept {
  ret.message = std::move(message);
  if (const int read = ledger_message_body(ret.message.get(), ret.body); read != status_ok) {
    return read;
  }
  ledger_reader reader{ret.body};
  const int status = static_cast<int>(reader.u32());
  ret.body = ret.body.subspan(reader.ok() ? 4 : 0);
  return reader.ok() ? status : ledger_bad_message;
}

int ledger_read_value(const ledger_reply& reply, ledger_value& ret) {
  ledger_reader reader{reply.body};
  ledger_value value;
  const int status = ledger_take_value(reader, value);
  if (status != status_ok || !reader.finished()) {
    return status != status_ok ? status : ledger_bad_message;
  }
  ret = std::move(value);
  return status_ok;
}

}  // namespace ot
