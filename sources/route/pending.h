// Route configuration that arrived while the FIB connection was down, first in, first out.
// Main thread.
#pragma once

#include <cstdint>

namespace ot {

// Queues an address item (`vrf_name` null, has_address true) or a VRF item. 0 or 12.
int queue_pending_route(const char* track, const char* vrf_name, std::uint32_t prefix,
                        std::uint32_t mask, bool has_address) noexcept;

// Applies and frees everything queued, in order. A failing item is traced and the rest goes on.
void replay_pending_routes();

// Frees everything queued: the end of a service in a test.
void drop_pending_routes() noexcept;

// How many items wait.
std::uint32_t pending_route_count() noexcept;

}  // namespace ot
