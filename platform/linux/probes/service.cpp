// The probe service's package as seen from the service: nothing is linked, everything is looked up
// by name in the libraries that are loaded, because the package may be installed while the service
// runs. Each read of a track loads the libraries, so what is loaded already costs no look at the
// loader's lists.
#include "platform/probe_service.h"

#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "platform/linux/probes/qmon/client.h"

namespace ot {
namespace {

constexpr const char* infrastructure = "libqmon_infra.dll";

// What the infrastructure library offers, as long as it is loaded; null what it lacks.
struct table_functions {
  decltype(::qmon_ot_shm_client_init)* init = nullptr;
  decltype(::qmon_ot_shm_get_stat_tbl)* get = nullptr;
  decltype(::qmon_ot_stat_look_up)* look_up = nullptr;
};

template <typename function>
void find(void* library, const char* name, function*& ret) noexcept {
  ret = reinterpret_cast<function*>(dlsym(library, name));
}

struct loaded_library {
  const char* name;
  void* handle = nullptr;
  unsigned uses = 0;
};
std::array<loaded_library, 2> package{{{infrastructure}, {"libqmon_infra_comp.dll"}}};
table_functions functions;

void look_functions_up() noexcept {
  void* const library = package[0].handle;
  functions = {};
  if (library != nullptr) {
    find(library, "qmon_ot_shm_client_init", functions.init);
    find(library, "qmon_ot_shm_get_stat_tbl", functions.get);
    find(library, "qmon_ot_stat_look_up", functions.look_up);
  }
}

}  // namespace

void* qmon_library_load(const char* name) noexcept {
  const auto known = std::find_if(package.begin(), package.end(), [name](const auto& library) {
    return std::strcmp(library.name, name) == 0;
  });
  if (known != package.end() && known->handle != nullptr) {
    ++known->uses;
    return known->handle;
  }
  void* const handle = dlopen(name, RTLD_NOW | RTLD_GLOBAL);
  if (known != package.end() && handle != nullptr) {
    known->handle = handle;
    known->uses = 1;
    look_functions_up();
  }
  return handle;
}

void qmon_library_unload(void* library) noexcept {
  if (library == nullptr) {
    return;
  }
  const auto known = std::find_if(package.begin(), package.end(), [library](const auto& candidate) {
    return candidate.handle == library;
  });
  if (known != package.end()) {
    if (--known->uses > 0) {
      return;
    }
    known->handle = nullptr;
    look_functions_up();
  }
  dlclose(library);
}

int qmon_ot_shm_client_init() noexcept {
  return functions.init == nullptr ? ENOSYS : functions.init();
}

void* qmon_ot_shm_get_stat_tbl() noexcept {
  return functions.get == nullptr ? nullptr : functions.get();
}

bool qmon_ot_stat_look_up(std::uint32_t op_id, const void* table, qmon_stat_entry* ret) noexcept {
  return functions.look_up != nullptr && functions.look_up(op_id, table, ret);
}

}  // namespace ot
