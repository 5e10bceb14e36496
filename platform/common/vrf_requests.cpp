// The VRF information service's fixed ids, the readers of its replies, and its registrations. Each
// platform brings the VRFs themselves and decides when a request is taken.
#include "platform/common/vrf_requests.h"

#include <new>

#include "platform/status.h"

namespace ot {

std::uint32_t vmap_c_vrf_id_dflt() noexcept {
  return default_vrf_id;
}
std::uint32_t vmap_c_vr_id_dflt() noexcept {
  return 0;
}
std::uint32_t vmap_c_tbl_id_ipv4_ucast_dflt() noexcept {
  return default_vrf_table;
}

void vmap_c_mdb_free(vmap_mdb* request) noexcept {
  delete request;
}

const vmap_reply* vmap_c_lrc_get_reply(const vmap_lookup_reply* reply) noexcept {
  return &reply->reply;
}

int vmap_c_lrc_get_reply_status(const vmap_reply* reply) noexcept {
  return reply->status;
}

std::uint32_t vmap_c_lrc_get_reply_item_cnt(const vmap_reply* reply) noexcept {
  return reply->found ? 1 : 0;
}

const vmap_vrf* vmap_c_lrc_get_reply_item_vrf(const vmap_reply* reply,
                                              std::uint32_t index) noexcept {
  return reply->found && index == 0 ? &reply->item : nullptr;
}

void vmap_c_lookup_reply_free(vmap_lookup_reply* reply) noexcept {
  delete reply;
}

int vrf_registrations::add(const vrf_registration& registration, std::uint64_t* ret) noexcept {
  try {
    registrations_[last_handle_ + 1] = registration;
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
  *ret = ++last_handle_;
  return status_ok;
}

int vrf_registrations::remove(std::uint64_t handle) noexcept {
  return registrations_.erase(handle) == 1 ? status_ok : not_found_errno;
}

const vrf_registration* vrf_registrations::find(std::uint64_t handle) const noexcept {
  const auto it = registrations_.find(handle);
  return it == registrations_.end() ? nullptr : &it->second;
}

std::vector<std::uint64_t> vrf_registrations::handles_for(std::string_view name) const {
  std::vector<std::uint64_t> handles;
  for (const auto& [handle, registration] : registrations_) {
    if (registration.name == name) {
      handles.push_back(handle);
    }
  }
  return handles;
}

}  // namespace ot
