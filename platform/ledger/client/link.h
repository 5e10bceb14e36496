// One connection to the service's socket. One thread at a time.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "platform/ledger/client/connection.h"
#include "platform/ledger/messages.h"

namespace ot {

class ledger_link {
 public:
  ~ledger_link();
  ledger_link() noexcept = default;
  ledger_link(const ledger_link&) = delete;
  ledger_link& operator=(const ledger_link&) = delete;

  // Makes sure that there is a connection: one that the service has ended, or that belongs to the
  // process this one was forked from, is replaced. 0; ledger_unreachable when no service runs,
  // ledger_busy when it did not take us, ledger_no_answer when it hangs (known to this link for a
  // second, in which no call waits for it again), ledger_denied.
  int ensure() noexcept;

  // Calls a member and waits a bounded time for its answer; `ret` is written when the service
  // answered with a status of its own. 0 or a status code: ledger_no_answer when none came in time,
  // ledger_unreachable when the connection ended before.
  int call(const char* member, const ledger_writer& request, ledger_reply& ret) noexcept;

  // The connection of an ensured link.
  [[nodiscard]] sd_bus* bus() const noexcept { return bus_.get(); }
  void drop() noexcept;

 private:
  [[nodiscard]] bool alive() const noexcept;

  int introduce();  // throws std::bad_alloc
  int remembered(int status) noexcept;

  bus_handle bus_;
  pid_t owner_ = 0;
  std::uint64_t silent_until_us_ = 0;
};

}  // namespace ot
