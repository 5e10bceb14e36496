// The client's end of the socket. Every wait is bounded, so a service that hangs costs its readers
// seconds and not their lives. A request is never sent twice: whether the service is still there is
// looked at before sending, not found out by it.
#include "platform/ledger/client/link.h"

#include <poll.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <utility>

#include "platform/common/root_path.h"
#include "platform/ledger/client/bus_call.h"
#include "platform/ledger/messages.h"
#include "platform/ledger_status.h"
#include "platform/linux/monotonic.h"
#include "platform/linux/unix_address.h"

namespace ot {
namespace {

constexpr std::uint64_t start_timeout_us = 3'000'000;
constexpr std::uint64_t call_timeout_us = 5'000'000;
constexpr std::uint64_t commit_timeout_us = 30'000'000;  // it waits for the disk, and for others
// After a wait in vain the next calls do not wait again.
constexpr std::uint64_t no_answer_holds_us = 1'000'000;

// For a connection that was not made, or that ended under way.
int status_of_errno(int error) noexcept {
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

// For one that was made and then not served.
int status_of_start(int error) noexcept {
  const bool ended = error == ECONNRESET || error == EPIPE || error == ENOTCONN;
  return ended ? ledger_busy : status_of_errno(error);
}

// A connected socket, or -1 with errno.
int connect_socket(const std::string& path) noexcept {
  sockaddr_un address{};
  if (!unix_address(path, &address)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    return -1;
  }
  // Bounds the wait for a service whose queue of connections is full.
  const timeval timeout{.tv_sec = start_timeout_us / 1'000'000, .tv_usec = 0};
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
  int result = 0;
  do {
    result = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  } while (result != 0 && errno == EINTR);
  if (result != 0) {
    const int error = errno;
    close(fd);
    errno = error;
    return -1;
  }
  return fd;
}

// Waits until both ends have introduced themselves; a call would wait for that far longer than it
// is asked to. 0 or a negative errno.
int finish_start(sd_bus* bus) noexcept {
  const std::uint64_t end = monotonic_us() + start_timeout_us;
  for (;;) {
    int result = sd_bus_process(bus, nullptr);
    if (result < 0) {
      return result;
    }
    const int ready = sd_bus_is_ready(bus);
    if (ready != 0) {
      return ready < 0 ? ready : 0;
    }
    if (result == 0) {
      result = wait_until_us(bus, end);
    } else {
      result = monotonic_us() < end ? 0 : -ETIMEDOUT;
    }
    if (result < 0) {
      return result;
    }
  }
}

// Takes the socket over. 0 or a negative errno.
int start_bus(int fd, bus_handle& ret) noexcept {
  sd_bus* made = nullptr;
  int result = sd_bus_new(&made);
  bus_handle bus{made};
  if (result >= 0) {
    result = sd_bus_set_fd(bus.get(), fd, fd);
  }
  if (result < 0) {
    close(fd);
    return result;
  }
  result = sd_bus_start(bus.get());
  if (result >= 0) {
    result = finish_start(bus.get());
  }
  if (result >= 0) {
    ret = std::move(bus);
  }
  return result;
}

}  // namespace

ledger_link::~ledger_link() {
  drop();
}

// A child leaves its parent's connection alone: closing it would end the conversation.
void ledger_link::drop() noexcept {
  if (bus_ && owner_ != getpid()) {
    (void)bus_.release();
  }
  bus_.reset();
}

bool ledger_link::alive() const noexcept {
  if (!bus_ || owner_ != getpid() || sd_bus_is_open(bus_.get()) <= 0) {
    return false;
  }
  pollfd state{.fd = sd_bus_get_fd(bus_.get()), .events = POLLRDHUP, .revents = 0};
  return poll(&state, 1, 0) == 0;
}

int ledger_link::ensure() noexcept {
  if (alive()) {
    return status_ok;
  }
  drop();
  if (monotonic_us() < silent_until_us_) {
    return ledger_no_answer;
  }
  try {
    int status = introduce();
    if (status == ledger_busy) {
      // Or it has just ended: nobody is there any more then, or somebody new.
      status = introduce();
    }
    return remembered(status);
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
}

int ledger_link::introduce() {
  const int fd = connect_socket(root_path(ledger_socket_path));
  if (fd < 0) {
    return status_of_errno(errno);
  }
  const int result = start_bus(fd, bus_);
  owner_ = getpid();
  return result < 0 ? status_of_start(-result) : status_ok;
}

int ledger_link::remembered(int status) noexcept {
  if (status == ledger_no_answer) {
    silent_until_us_ = monotonic_us() + no_answer_holds_us;
  }
  return status;
}

int ledger_link::call(const char* member, const ledger_writer& request,
                      ledger_reply& ret) noexcept {
  if (request.data().size() > ledger_writers_message_max) {
    return invalid_argument;
  }
  if (const int status = ensure(); status != status_ok) {
    return status;
  }
  sd_bus_message* made = nullptr;
  int result = sd_bus_message_new_method_call(bus(), &made, nullptr, ledger_object,
                                              ledger_interface, member);
  const message_handle message{made};
  if (result >= 0) {
    result = sd_bus_message_append_array(made, 'y', request.data().data(), request.data().size());
  }
  message_handle answer;
  if (result >= 0) {
    const bool waits = std::string_view{member} == ledger_member::commit;
    result = call_and_wait(bus(), made, waits ? commit_timeout_us : call_timeout_us, answer);
  }
  if (result < 0) {
    drop();  // a late answer must not be taken for the next call's
    return remembered(status_of_errno(-result));
  }
  ret.message = std::move(answer);
  if (const int read = ledger_message_body(ret.message.get(), ret.body); read != status_ok) {
    return read;
  }
  ledger_reader reader{ret.body};
  const int status = static_cast<int>(reader.u32());
  ret.body = ret.body.subspan(reader.ok() ? 4 : 0);
  return reader.ok() ? status : ledger_bad_message;
}

}  // namespace ot
