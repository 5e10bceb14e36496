// The client's end of the socket. Every wait is bounded, so a service that hangs costs its readers
// seconds and not their lives. A request is never sent twice: whether the service is still there is
// looked at before sending, not found out by it.
#include "platform/ledger/client/link.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <utility>

#include "platform/ledger/client/bus_call.h"
#include "platform/ledger/messages.h"
#include "platform/ledger_status.h"
#include "platform/linux/monotonic.h"

namespace ot {
namespace {

constexpr std::uint64_t start_timeout_us = 3'000'000;
constexpr std::uint64_t call_timeout_us = 5'000'000;
constexpr std::uint64_t commit_timeout_us = 30'000'000;  // it waits for the disk, and for others
// After a wait in vain the next calls do not wait again.
constexpr std::uint64_t no_answer_holds_us = 1'000'000;

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
  unique_fd socket = ledger_connect(start_timeout_us);
  if (!socket.valid()) {
    return ledger_status_of_errno(errno);
  }
  bus_handle bus;
  int result = ledger_start_bus(std::move(socket), bus);
  if (result >= 0) {
    result = finish_start(bus.get());
  }
  if (result < 0) {
    return ledger_status_of_start(-result);
  }
  bus_ = std::move(bus);
  owner_ = getpid();
  return status_ok;
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
  message_handle message;
  int result = ledger_make_request(bus(), member, request.data(), message);
  message_handle answer;
  if (result >= 0) {
    const bool waits = std::string_view{member} == ledger_member::commit;
    result =
        call_and_wait(bus(), message.get(), waits ? commit_timeout_us : call_timeout_us, answer);
  }
  if (result < 0) {
    drop();  // a late answer must not be taken for the next call's
    return remembered(ledger_status_of_errno(-result));
  }
  return ledger_read_reply(std::move(answer), ret);
}

}  // namespace ot
