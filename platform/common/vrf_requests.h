// What is the same in every VRF information service: its fixed ids, its requests and replies, and
// the registrations it keeps.
#pragma once

#include <cstdint>
#include <map>
#include <string_view>
#include <vector>

#include "platform/vrf_service.h"

namespace ot {

inline constexpr std::uint32_t default_vrf_id = 0x60000000;  // no ifindex is as large
inline constexpr std::uint32_t default_vrf_table = 254;

// Ids of event connections are one space: those of the interface manager are small.
inline constexpr std::int32_t first_vrf_binding = 0x10000;

struct vmap_mdb {
  vmap_lib* library = nullptr;
  vmap_vrf_callback callback = nullptr;
  vmap_vrf wanted;  // by name, or by id when the name is empty
};

struct vmap_reply {
  int status = 0;
  bool found = false;
  vmap_vrf item;
};

struct vmap_lookup_reply {
  vmap_reply reply;
};

struct vrf_registration {
  vmap_lib* library = nullptr;
  vmap_vrf_callback callback = nullptr;
  vrf_text name;
};

class vrf_registrations {
 public:
  // 0 or 12; `ret` is a handle that was never given before.
  int add(const vrf_registration& registration, std::uint64_t* ret) noexcept;
  // 0, or 2 for a handle that is not in use.
  int remove(std::uint64_t handle) noexcept;
  // Null when it has been removed.
  [[nodiscard]] const vrf_registration* find(std::uint64_t handle) const noexcept;
  // Who registered for the VRF, in the order of registration. A callback may register and
  // unregister, so each is to be found again when its turn comes.
  [[nodiscard]] std::vector<std::uint64_t> handles_for(std::string_view name) const;
  [[nodiscard]] std::size_t size() const noexcept { return registrations_.size(); }

 private:
  std::uint64_t last_handle_ = 0;
  std::map<std::uint64_t, vrf_registration> registrations_;
};

}  // namespace ot
