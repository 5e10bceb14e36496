// The router's services that tracks stand on, as the service last saw each: connected or not, and
// since when. For the operator; nothing decides by it. Main thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/fixed_text.h"

namespace ot {

enum class router_service : std::size_t { bfd_engine, probe_service, fib, interface_manager };
inline constexpr std::size_t router_service_count = 4;

struct connection_state {
  bool connected = false;
  std::int64_t since = 0;  // wall-clock seconds of the last change, or of the service's start
};

// None is connected, from now on: the service starts.
void forget_connections() noexcept;

// Says how a connection is; what it was already keeps its time. `since`: wall-clock seconds, by
// default now.
void note_connection(router_service service, bool connected) noexcept;
void note_connection(router_service service, bool connected, std::int64_t since) noexcept;

connection_state connection_of(router_service service) noexcept;

using service_detail = fixed_text<224>;

// How a kind of tracks depends on a service.
struct service_of_tracks {
  router_service service;
  const char* name;                     // for the operator
  std::uint32_t (*pending)() noexcept;  // how much waits for the service
  void (*look)() noexcept = nullptr;    // brings the connection up to date before it is shown
  // What the service is and why, for the operator; null where there is nothing to choose.
  service_detail (*detail)() noexcept = nullptr;
  // Packets that came to the service and were discarded; null where none come.
  std::uint64_t (*discarded)() noexcept = nullptr;
};

}  // namespace ot
