// The two client libraries of the VRF information service, as vrf_connection.cpp keeps them bound.
#pragma once

#include <cstdint>

#include "platform/vrf_service.h"

namespace ot {

inline constexpr std::int32_t not_bound = -1;

struct vmap_binding {
  vmap_lib* handle = nullptr;
  std::int32_t id = not_bound;
};

extern vmap_binding vmap_lookup_library;
extern vmap_binding vmap_registration_library;

void unbind(vmap_binding& library) noexcept;

}  // namespace ot
