// The probe service's package as seen from the service: nothing is linked, everything is looked up
// by name in the libraries that are loaded at that moment, because the package may be installed or
// removed while the service runs.
#include "platform/probe_service.h"

#include <dlfcn.h>

#include <cerrno>

#include "platform/linux/probes/qmon/client.h"

namespace ot {
namespace {

// The function of that name in the library, if that is loaded; else null. Asking the library and
// not everything that is loaded leaves it free to be unloaded afterwards.
template <typename function>
function* find(const char* name) noexcept {
  void* const library = dlopen("libqmon_infra.dll", RTLD_NOW | RTLD_NOLOAD);
  if (library == nullptr) {
    return nullptr;
  }
  auto* const found = reinterpret_cast<function*>(dlsym(library, name));
  dlclose(library);  // whoever had loaded it still holds it
  return found;
}

}  // namespace

void* qmon_library_load(const char* name) noexcept {
  return dlopen(name, RTLD_NOW | RTLD_GLOBAL);
}

void qmon_library_unload(void* library) noexcept {
  if (library != nullptr) {
    dlclose(library);
  }
}

int qmon_ot_shm_client_init() noexcept {
  auto* const init = find<decltype(::qmon_ot_shm_client_init)>("qmon_ot_shm_client_init");
  return init == nullptr ? ENOSYS : init();
}

void* qmon_ot_shm_get_stat_tbl() noexcept {
  auto* const get = find<decltype(::qmon_ot_shm_get_stat_tbl)>("qmon_ot_shm_get_stat_tbl");
  return get == nullptr ? nullptr : get();
}

bool qmon_ot_stat_look_up(std::uint32_t op_id, const void* table, qmon_stat_entry* ret) noexcept {
  auto* const look_up = find<decltype(::qmon_ot_stat_look_up)>("qmon_ot_stat_look_up");
  return look_up != nullptr && look_up(op_id, table, ret);
}

}  // namespace ot
