// The event manager's types, for those who only hand them on. What can be done with them is in
// event_manager.h and event_connections.h.
#pragma once

namespace ot {

struct evm;
struct evm_conn;

// Describes how a library raises an attached event.
struct evm_sigevent {
  evm* manager = nullptr;
  int code = 0;
};

}  // namespace ot
