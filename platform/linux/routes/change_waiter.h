// Waits, on a thread of its own, for the change to be whole that the kernel is at. The kernel
// announces changes of links and addresses before it has taken their routes away, and holds a lock
// from the first of its messages to the end. Whoever asks it a question about links waits for that
// lock, for as long as the change of a thousand links takes; the loop must not.
//
// The loop's thread asks, the other one waits, and the loop is told. Only counters pass between
// them, through two eventfds.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>
#include <thread>

#include "platform/evm.h"
#include "platform/linux/netlink/socket.h"
#include "platform/linux/unique_fd.h"

namespace ot {

class change_waiter {
 public:
  // `whole(context)` is called on the loop's thread.
  change_waiter(void (*whole)(void* context), void* context) noexcept
      : whole_(whole), context_(context) {}
  ~change_waiter() { close(); }
  change_waiter(const change_waiter&) = delete;
  change_waiter& operator=(const change_waiter&) = delete;

  // Starts the thread, if it does not run, in the caller's network namespace. 0 or an errno value.
  int open(evm* manager) noexcept;
  void close() noexcept;

  // Has `whole` called once the change that the kernel is at now is whole; once for all that were
  // asked for since it was called last.
  void ask() noexcept;

 private:
  static int on_whole(sd_event_source* source, int fd, std::uint32_t events, void* self);
  void run() noexcept;

  void (*whole_)(void* context);
  void* context_;
  unique_fd asked_;
  unique_fd answered_;
  netlink_socket requests_;  // the thread's, while it runs
  sd_event_source* source_ = nullptr;
  std::uint64_t under_way_ = 0;  // questions that were not answered yet
  std::thread thread_;
};

}  // namespace ot
