// One request on a connection that the bus drives: it introduces itself, sends and receives as far
// as the socket allows, whenever it is asked to go on.
#include "platform/ledger_fetch.h"

#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "platform/ledger/client/connection.h"
#include "platform/ledger/messages.h"
#include "platform/ledger_status.h"

namespace ot {

struct ledger_fetch {
  message_handle answer;
  bus_handle bus;  // goes first: it may write to the answer
};

namespace {

constexpr std::uint64_t no_limit_us = 3'600'000'000;  // the caller has one

int keep_answer(sd_bus_message* answer, void* fetch, sd_bus_error* /*error*/) noexcept {
  static_cast<ledger_fetch*>(fetch)->answer.reset(sd_bus_message_ref(answer));
  return 1;
}

int send_request(ledger_fetch& fetch, const char* path) {
  ledger_writer request;
  request.text(path);
  message_handle message;
  int result = ledger_make_request(fetch.bus.get(), ledger_member::get, request.data(), message);
  if (result >= 0) {
    result = sd_bus_call_async(fetch.bus.get(), nullptr, message.get(), keep_answer, &fetch,
                               no_limit_us);
  }
  return result;
}

}  // namespace

int ledger_fetch_begin(const char* path, ledger_fetch** ret) noexcept {
  try {
    auto fetch = std::make_unique<ledger_fetch>();
    unique_fd socket = ledger_connect(0);
    if (!socket.valid()) {
      return ledger_status_of_errno(errno);
    }
    int result = ledger_start_bus(std::move(socket), fetch->bus);
    if (result >= 0) {
      result = send_request(*fetch, path);
    }
    if (result < 0) {
      return ledger_status_of_start(-result);
    }
    *ret = fetch.release();
    return status_ok;
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
}

int ledger_fetch_fd(const ledger_fetch* fetch) noexcept {
  return sd_bus_get_fd(fetch->bus.get());
}

int ledger_fetch_take(ledger_fetch* fetch, ledger_value* ret) noexcept {
  while (fetch->answer == nullptr) {
    const int result = sd_bus_process(fetch->bus.get(), nullptr);
    if (result < 0 && result != -EINTR) {
      return ledger_status_of_start(-result);
    }
    if (result == 0) {
      return ledger_no_answer;
    }
  }
  if (sd_bus_message_is_method_error(fetch->answer.get(), nullptr) > 0) {
    return ledger_status_of_start(sd_bus_is_open(fetch->bus.get()) > 0
                                      ? sd_bus_message_get_errno(fetch->answer.get())
                                      : ECONNRESET);
  }
  ledger_reply reply;
  const int status = ledger_read_reply(std::move(fetch->answer), reply);
  return status == status_ok ? ledger_read_value(reply, *ret) : status;
}

void ledger_fetch_end(ledger_fetch* fetch) noexcept {
  delete fetch;
}

}  // namespace ot
