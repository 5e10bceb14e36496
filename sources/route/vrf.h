// The service's client of the VRF information service: names to ids and back, notifications about
// one VRF, and the connection, which is kept across restarts of the service. Main thread.
#pragma once

#include <cstdint>

#include "platform/evm.h"
#include "platform/vrf_service.h"

namespace ot {

inline constexpr std::int32_t not_bound = -1;

// A client library of the service, and its binding.
struct vmap_binding {
  vmap_lib* handle = nullptr;
  std::int32_t id = not_bound;
};
extern vmap_binding vmap_lookup_library;
extern vmap_binding vmap_registration_library;

// Sets both client libraries and the event connection up and opens it. 0, also while the manager
// goes on trying, or the error of the failing step.
int ot_vmap_init(evm* manager) noexcept;
// Unbinds: the end of a service in a test.
void ot_vmap_stop() noexcept;

// Open and close callbacks of the event connection.
std::uint32_t ot_vmap_open(void* context);
void ot_vmap_close(evm_conn* connection, std::uint32_t event);

// (Re)binds the look-up library. Status code.
int ot_vmap_lookup_init() noexcept;

// The id, 0 for a VRF that is not known or cannot be looked up.
std::uint32_t ot_vmap_vrf_name_2_vrf_id(const char* name) noexcept;
// A copy of the name; "default" when it cannot be found.
vrf_text ot_vmap_vrf_id_2_vrf_name(std::uint32_t vrf_id) noexcept;

// Registers for notifications of a VRF, existing or not; a handle that is set is registered
// already. Status code; the handle is 0 after a refusal.
int ot_vmap_vrf_add(const char* name, std::uint64_t* handle) noexcept;
// Drops the registration and clears the handle. 0, or 22 for a null name.
int ot_vmap_vrf_remove(const char* name, std::uint64_t* handle) noexcept;

// Callback of every registration.
int ot_vmap_vrf_callback(std::uint32_t event, const vmap_vrf* item);

}  // namespace ot
