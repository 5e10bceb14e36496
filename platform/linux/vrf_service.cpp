// The VRF information service of this platform: the kernel's VRF devices. It cannot be away, so a
// library that is bound stays bound.
#include "platform/vrf_service.h"

#include <map>
#include <memory>
#include <new>
#include <vector>

#include "platform/fib_client.h"
#include "platform/linux/vrf_devices.h"
#include "platform/status.h"

namespace ot {

struct vmap_lib {
  std::uint32_t mode = 0;
  evm* manager = nullptr;
};

struct vmap_mdb {
  vmap_vrf_callback callback = nullptr;
  vmap_vrf wanted;  // by name, or by id when the name is empty
};

struct vmap_reply {
  bool found = false;
  vmap_vrf item;
};

struct vmap_lookup_reply {
  vmap_reply reply;
};

namespace {

// Ids of event connections are one space: those of the interface manager are small.
constexpr std::int32_t first_binding = 0x10000;

struct vrf_registration {
  vmap_vrf_callback callback = nullptr;
  vrf_text name;
};

evm* event_loop = nullptr;  // of the registration library
std::int32_t last_binding = first_binding;
std::uint64_t last_handle = 0;

std::map<std::uint64_t, vrf_registration>& registrations() {
  static std::map<std::uint64_t, vrf_registration> all;
  return all;
}

// A callback may register and unregister, so the ones to be called are collected first.
void tell(const vrf_device& device, bool gone) {
  const vmap_vrf vrf{device.name, device.id};
  std::vector<vmap_vrf_callback> callbacks;
  for (const auto& [handle, registration] : registrations()) {
    if (registration.name == device.name) {
      callbacks.push_back(registration.callback);
    }
  }
  for (const vmap_vrf_callback callback : callbacks) {
    callback(gone ? vmap_event_delete : vmap_event_update, &vrf);
  }
}

template <typename T>
int made(T* object, T** ret) noexcept {
  *ret = object;
  return object == nullptr ? no_memory : status_ok;
}

}  // namespace

std::uint32_t vmap_c_vrf_id_dflt() noexcept {
  return default_vrf_id;
}
std::uint32_t vmap_c_vr_id_dflt() noexcept {
  return 0;
}
std::uint32_t vmap_c_tbl_id_ipv4_ucast_dflt() noexcept {
  return default_vrf_table;
}

int vmap_c_lib_init(std::uint32_t mode, const char* /*name*/, evm* manager, int (* /*callback*/)(),
                    vmap_lib** ret) noexcept {
  event_loop = manager != nullptr ? manager : event_loop;
  return made(new (std::nothrow) vmap_lib{mode, manager}, ret);
}

int vmap_c_bind(vmap_lib* /*library*/, std::int32_t* ret_binding) noexcept {
  const int status = the_vrf_devices().open(event_loop, tell);
  if (status == status_ok) {
    *ret_binding = ++last_binding;
  }
  return status;
}

int vmap_c_unbind(vmap_lib* /*library*/, std::int32_t /*binding*/) noexcept {
  return status_ok;
}

int vmap_c_mdb_init(vmap_lib* /*library*/, std::uint32_t /*mode*/, vmap_mdb** ret) noexcept {
  return made(new (std::nothrow) vmap_mdb{}, ret);
}

int vmap_c_mdb_add_vrf_by_vrf_name(vmap_mdb* request, vmap_vrf_callback callback,
                                   std::uint32_t /*router_id*/, const char* name) noexcept {
  request->callback = callback;
  request->wanted.name.assign(name);
  return status_ok;
}

int vmap_c_mdb_add_vrf_by_vrf_id(vmap_mdb* request, vmap_vrf_callback callback,
                                 std::uint32_t /*router_id*/, std::uint32_t id) noexcept {
  request->callback = callback;
  request->wanted.id = id;
  return status_ok;
}

void vmap_c_mdb_free(vmap_mdb* request) noexcept {
  delete request;
}

int vmap_c_lookup(vmap_mdb* request, vmap_lookup_reply** ret) noexcept {
  const vmap_vrf& wanted = request->wanted;
  const vrf_device* found = wanted.name.empty() ? the_vrf_devices().with_id(wanted.id)
                                                : the_vrf_devices().named(wanted.name.view());
  const int status = made(new (std::nothrow) vmap_lookup_reply{}, ret);
  if (status == status_ok && found != nullptr) {
    (*ret)->reply = {true, {found->name, found->id}};
  }
  return status;
}

const vmap_reply* vmap_c_lrc_get_reply(const vmap_lookup_reply* reply) noexcept {
  return &reply->reply;
}

int vmap_c_lrc_get_reply_status(const vmap_reply* /*reply*/) noexcept {
  return status_ok;
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

int vmap_c_notif_reg(vmap_mdb* request, vmap_registration_reply* ret) noexcept {
  try {
    registrations()[last_handle + 1] = {request->callback, request->wanted.name};
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
  *ret = {status_ok, ++last_handle};
  return status_ok;
}

int vmap_c_notif_unreg(vmap_lib* /*library*/, std::uint64_t handle) noexcept {
  return registrations().erase(handle) == 1 ? status_ok : not_found_errno;
}

int tblx_shm_lookup_vrf(std::uint32_t vrf_id, std::uint32_t* ret_table_id) noexcept {
  const vrf_device* device = the_vrf_devices().with_id(vrf_id);
  if (device != nullptr) {
    *ret_table_id = device->table;
  }
  return device != nullptr ? status_ok : not_found_errno;
}

int tblx_shm_lookup_tbl(std::uint32_t table_id, std::uint32_t* ret_vrf_id) noexcept {
  const vrf_device* device = the_vrf_devices().with_table(table_id);
  if (device != nullptr) {
    *ret_vrf_id = device->id;
  }
  return device != nullptr ? status_ok : not_found_errno;
}

}  // namespace ot
