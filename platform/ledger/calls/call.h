// One call through the ledger's edge: the connection that it is made on, and what serves it. Each
// platform says what that is: the engine of this process, the socket, or the tests' in-memory
// ledger.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <new>
#include <string_view>

#include "platform/ledger.h"
#include "platform/ledger/calls/backend.h"
#include "platform/ledger/item.h"
#include "platform/status.h"

namespace ot {

// A connection is no more than the path that it is bound to; the way to the ledger is the
// process's, whatever the number of its connections.
struct ledger_conn {
  std::array<char, ledger_path_max + 1> base{};
  std::size_t length = 0;
};

// The bound path. Exported for the service side.
std::string_view ledger_conn_base(const ledger_conn* connection) noexcept;

// An absolute path made of a connection's and a relative one, without allocating. One that is too
// long is empty, which no operation accepts.
class ledger_full_path {
 public:
  ledger_full_path(const ledger_conn* connection, const char* relative) noexcept;
  [[nodiscard]] std::string_view view() const noexcept { return {text_.data(), length_}; }

 private:
  std::array<char, ledger_path_max + 1> text_;
  std::size_t length_ = 0;
};

// Runs `body(backend, argument)` with what serves this process and thread; the platform's lock or
// pause is held that long. Calls nest only in the process that hosts the ledger, where an apply
// function uses it.
int ledger_enter(int (*body)(ledger_backend& backend, void* argument), void* argument);

// The same for a lambda; lack of memory becomes a status.
template <typename Body>
int ledger_call(Body body) {
  try {
    return ledger_enter([](ledger_backend& backend,
                           void* argument) { return (*static_cast<Body*>(argument))(backend); },
                        &body);
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
}

// The process that hosts the ledger serves itself (Linux): from now on calls from the calling
// thread go to `backend`, without a socket; those of its other threads still go through the socket,
// and those of its children. Null ends it.
void ledger_install_local(ledger_backend* backend) noexcept;

// Items that switch a word in the process: the trace flags. Ties the u32 item `path` (absolute) to
// `word`: the item's stored value is put into the word now, and every later set of the item changes
// it (a delete makes it 0). In a process that does not host the ledger only the present value is
// looked up, and an unreachable ledger leaves the word alone. The word must outlive the ledger. 0
// or a status code.
int ledger_switch_register(const char* path, std::atomic<std::uint32_t>* word) noexcept;

}  // namespace ot
