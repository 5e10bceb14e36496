// The in-memory VRF information service, and the translation between VRF ids and table ids. A
// library keeps its registrations while the service is away.
#include "platform/vrf_service.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "platform/common/vrf_requests.h"
#include "platform/event_connections.h"
#include "platform/fib_client.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "platform/memory/loops.h"
#include "platform/memory/world.h"
#include "platform/status.h"

namespace ot {

struct vmap_lib {
  std::uint32_t mode = 0;
  evm* manager = nullptr;
  std::int32_t binding = -1;
};

namespace {

constexpr int service_not_running = 111;  // ECONNREFUSED

struct field_vrf {
  vmap_vrf vrf;
  std::uint32_t table = 0;
};

struct vrf_part {
  bool running = true;
  std::int32_t next_binding = first_vrf_binding;
  std::vector<std::unique_ptr<vmap_lib>> libraries;
  std::vector<field_vrf> vrfs{{{vrf_text{"default"}, default_vrf_id}, default_vrf_table}};
  vrf_registrations registrations;
};

vrf_part& part() {
  return world_part<vrf_part>();
}

template <typename Matches>
const field_vrf* find_vrf(Matches matches) {
  const auto& vrfs = part().vrfs;
  const auto it = std::find_if(vrfs.begin(), vrfs.end(), matches);
  return it == vrfs.end() ? nullptr : &*it;
}

const field_vrf* vrf_named(std::string_view name) {
  return find_vrf([name](const field_vrf& v) { return v.vrf.name == name; });
}

// Notifies whoever registered for the VRF; what was posted for a registration that is gone is
// dropped.
void notify(std::uint32_t event, const vmap_vrf& vrf) {
  const vrf_registrations& registrations = part().registrations;
  for (const std::uint64_t handle : registrations.handles_for(vrf.name.view())) {
    loop_post(registrations.find(handle)->library->manager, [handle, event, vrf] {
      if (const vrf_registration* registration = part().registrations.find(handle)) {
        alloc_faults_resumed resume;
        registration->callback(event, &vrf);
      }
    });
  }
}

}  // namespace

int vmap_c_lib_init(std::uint32_t mode, const char* name, evm* manager, int (*callback)(),
                    vmap_lib** ret) noexcept {
  alloc_faults_paused pause;
  note_introduction("vmap_c_lib_init",
                    {std::to_string(mode), name, manager == nullptr ? "unmanaged" : "managed",
                     callback == nullptr ? "no callback" : std::to_string(callback())});
  if (const int code = take_failure_code("vmap_c_lib_init")) {
    return code;
  }
  part().libraries.push_back(std::make_unique<vmap_lib>(vmap_lib{mode, manager, -1}));
  *ret = part().libraries.back().get();
  return status_ok;
}

int vmap_c_bind(vmap_lib* library, std::int32_t* ret_binding) noexcept {
  alloc_faults_paused pause;
  if (const int code = take_failure_code("vmap_c_bind")) {
    return code;
  }
  if (!part().running) {
    return service_not_running;
  }
  library->binding = part().next_binding++;
  *ret_binding = library->binding;
  return status_ok;
}

int vmap_c_unbind(vmap_lib* library, std::int32_t /*binding*/) noexcept {
  library->binding = -1;
  return status_ok;
}

int vmap_c_mdb_init(vmap_lib* library, std::uint32_t /*mode*/, vmap_mdb** ret) noexcept {
  alloc_faults_paused pause;
  if (const int code = take_failure_code("vmap_c_mdb_init")) {
    return code;
  }
  *ret = new vmap_mdb{library, nullptr, {}};
  return status_ok;
}

int vmap_c_mdb_add_vrf_by_vrf_name(vmap_mdb* request, vmap_vrf_callback callback,
                                   std::uint32_t /*router_id*/, const char* name) noexcept {
  request->callback = callback;
  request->wanted.name.assign(name);
  return take_failure_code("vmap_c_mdb_add_vrf_by_vrf_name");
}

int vmap_c_mdb_add_vrf_by_vrf_id(vmap_mdb* request, vmap_vrf_callback callback,
                                 std::uint32_t /*router_id*/, std::uint32_t id) noexcept {
  request->callback = callback;
  request->wanted.id = id;
  return take_failure_code("vmap_c_mdb_add_vrf_by_vrf_id");
}

int vmap_c_lookup(vmap_mdb* request, vmap_lookup_reply** ret) noexcept {
  alloc_faults_paused pause;
  const auto failure = take_failure("vmap_c_lookup");
  if (failure && failure->result != 0) {
    return failure->result;
  }
  if (!part().running || request->library->binding < 0) {
    return service_not_running;
  }
  const vmap_vrf& wanted = request->wanted;
  const field_vrf* found = find_vrf([&wanted](const field_vrf& v) {
    return wanted.name.empty() ? v.vrf.id == wanted.id : v.vrf.name == wanted.name;
  });
  *ret = new vmap_lookup_reply{};
  if (found != nullptr) {
    (*ret)->reply = {failure ? failure->item_status : status_ok, true, found->vrf};
  }
  return status_ok;
}

int vmap_c_notif_reg(vmap_mdb* request, vmap_registration_reply* ret) noexcept {
  alloc_faults_paused pause;
  ret->status = status_ok;
  if (const auto failure = take_failure("vmap_c_notif_reg")) {
    ret->status = failure->item_status;
    return failure->result;
  }
  if (!part().running) {
    return service_not_running;
  }
  return part().registrations.add({request->library, request->callback, request->wanted.name},
                                  &ret->handle);
}

int vmap_c_notif_unreg(vmap_lib* /*library*/, std::uint64_t handle) noexcept {
  alloc_faults_paused pause;
  return part().registrations.remove(handle);
}

int tblx_shm_lookup_vrf(std::uint32_t vrf_id, std::uint32_t* ret_table_id) noexcept {
  const field_vrf* found = find_vrf([vrf_id](const field_vrf& v) { return v.vrf.id == vrf_id; });
  if (found == nullptr) {
    return not_found_errno;
  }
  *ret_table_id = found->table;
  return status_ok;
}

int tblx_shm_lookup_tbl(std::uint32_t table_id, std::uint32_t* ret_vrf_id) noexcept {
  const field_vrf* found = find_vrf([table_id](const field_vrf& v) { return v.table == table_id; });
  if (found == nullptr) {
    return not_found_errno;
  }
  *ret_vrf_id = found->vrf.id;
  return status_ok;
}

namespace field {

void vrf_added(std::string_view name, std::uint32_t id, std::uint32_t table) {
  vrf_removed_silently(name);
  const vmap_vrf vrf{vrf_text{name}, id};
  part().vrfs.push_back({vrf, table});
  notify(vmap_event_update, vrf);
}

void vrf_removed(std::string_view name) {
  if (const field_vrf* found = vrf_named(name)) {
    const vmap_vrf vrf = found->vrf;
    vrf_removed_silently(name);
    notify(vmap_event_delete, vrf);
  }
}

void vrf_removed_silently(std::string_view name) {
  std::erase_if(part().vrfs, [name](const field_vrf& v) { return v.vrf.name == name; });
}

void vrf_service_gone() {
  part().running = false;
  for (const auto& library : part().libraries) {
    const std::int32_t binding = library->binding;
    if (library->manager != nullptr && binding >= 0) {
      evm_conn_ended(library->manager, static_cast<std::uint32_t>(binding), evm_conn_closed);
    }
    library->binding = -1;
  }
}

void vrf_service_back() {
  part().running = true;
}

std::size_t vrf_registrations() {
  return part().registrations.size();
}

}  // namespace field
}  // namespace ot
