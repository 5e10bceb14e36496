// Each source says when its connection changes; the operational data show it.

#include "core/connections.h"

#include <array>

#include "platform/clock.h"

namespace ot {
namespace {

std::array<connection_state, router_service_count> states;

}  // namespace

void forget_connections() noexcept {
  states.fill({false, clock_realtime_seconds()});
}

void note_connection(router_service service, bool connected) noexcept {
  note_connection(service, connected, clock_realtime_seconds());
}

void note_connection(router_service service, bool connected, std::int64_t since) noexcept {
  connection_state& state = states[static_cast<std::size_t>(service)];
  if (state.connected != connected) {
    state = {connected, since};
  }
}

connection_state connection_of(router_service service) noexcept {
  return states[static_cast<std::size_t>(service)];
}

}  // namespace ot
