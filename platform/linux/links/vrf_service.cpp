// The VRF information service of this platform: the kernel's VRF devices. It cannot be away, so a
// library that is bound stays bound.
#include "platform/vrf_service.h"

#include <iterator>
#include <new>

#include "platform/common/vrf_requests.h"
#include "platform/fib_client.h"
#include "platform/linux/links/vrf_devices.h"
#include "platform/status.h"

namespace ot {

struct vmap_lib {
  evm* manager = nullptr;
};

namespace {

vmap_lib libraries[2];  // by mode
std::int32_t last_binding = first_vrf_binding;

vrf_registrations& registrations() {
  static vrf_registrations all;
  return all;
}

void notify(const vrf_device& device, bool gone) {
  const vmap_vrf vrf{device.name, device.id};
  for (const std::uint64_t handle : registrations().handles_for(device.name.view())) {
    if (const vrf_registration* registration = registrations().find(handle)) {
      registration->callback(gone ? vmap_event_delete : vmap_event_update, &vrf);
    }
  }
}

template <typename T>
int made(T* object, T** ret) noexcept {
  *ret = object;
  return object == nullptr ? no_memory : status_ok;
}

}  // namespace

int vmap_c_lib_init(std::uint32_t mode, const char* /*name*/, evm* manager, int (* /*callback*/)(),
                    vmap_lib** ret) noexcept {
  if (mode >= std::size(libraries)) {
    return invalid_argument;
  }
  libraries[mode].manager = manager;
  *ret = &libraries[mode];
  return status_ok;
}

// Both libraries stand on the devices, which are followed on the loop of the one for registrations.
int vmap_c_bind(vmap_lib* /*library*/, std::int32_t* ret_binding) noexcept {
  const int status = the_vrf_devices().open(libraries[vmap_lib_registration].manager, notify);
  if (status == status_ok) {
    *ret_binding = ++last_binding;
  }
  return status;
}

int vmap_c_unbind(vmap_lib* /*library*/, std::int32_t /*binding*/) noexcept {
  return status_ok;
}

int vmap_c_mdb_init(vmap_lib* library, std::uint32_t /*mode*/, vmap_mdb** ret) noexcept {
  return made(new (std::nothrow) vmap_mdb{library, nullptr, {}}, ret);
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

int vmap_c_lookup(vmap_mdb* request, vmap_lookup_reply** ret) noexcept {
  const vmap_vrf& wanted = request->wanted;
  const vrf_device* found = wanted.name.empty() ? the_vrf_devices().with_id(wanted.id)
                                                : the_vrf_devices().named(wanted.name.view());
  const int status = made(new (std::nothrow) vmap_lookup_reply{}, ret);
  if (status == status_ok && found != nullptr) {
    (*ret)->reply = {status_ok, true, {found->name, found->id}};
  }
  return status;
}

int vmap_c_notif_reg(vmap_mdb* request, vmap_registration_reply* ret) noexcept {
  ret->status = status_ok;
  return registrations().add({request->library, request->callback, request->wanted.name},
                             &ret->handle);
}

int vmap_c_notif_unreg(vmap_lib* /*library*/, std::uint64_t handle) noexcept {
  return registrations().remove(handle);
}

int tblx_shm_lookup_vrf(std::uint32_t vrf_id, std::uint32_t* ret_table_id) noexcept {
  const vrf_device* device = the_vrf_devices().with_id(vrf_id);
  if (device != nullptr) {
    *ret_table_id = device->table_id;
  }
  return device != nullptr ? status_ok : not_found_errno;
}

int tblx_shm_lookup_tbl(std::uint32_t table_id, std::uint32_t* ret_vrf_id) noexcept {
  const vrf_device* device = the_vrf_devices().with_table_id(table_id);
  if (device != nullptr) {
    *ret_vrf_id = device->id;
  }
  return device != nullptr ? status_ok : not_found_errno;
}

}  // namespace ot
