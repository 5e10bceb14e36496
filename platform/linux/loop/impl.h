// The event manager's own record, shared by the files that implement it.
#pragma once

#include <systemd/sd-event.h>

#include "platform/event_manager.h"
#include "platform/linux/loop/queue.h"

namespace ot {

struct evm_flush_hook {
  evm_flush_hook* next = nullptr;
  void (*flush)(void* argument) = nullptr;
  void* argument = nullptr;
};

struct evm_conn {
  evm* manager = nullptr;
  evm_conn* next = nullptr;
  evm_conn_open_func open = nullptr;
  void* context = nullptr;
  std::uint32_t id = evm_no_connection;  // while it is open
  std::uint32_t first_delay = 1;         // seconds
  std::uint32_t longest_delay = 30;
  std::uint32_t next_delay = 1;
  std::uint32_t event_mask = 0;
  evm_conn_event_func on_event = nullptr;
  sd_event_source* retry = nullptr;
};

struct evm {
  evm() = default;
  ~evm();
  evm(const evm&) = delete;
  evm& operator=(const evm&) = delete;

  sd_event* loop = nullptr;
  evm_flush_hook* flushes = nullptr;
  evm_conn* connections = nullptr;
  evm_queue queue;
};

}  // namespace ot
