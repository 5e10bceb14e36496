// The in-memory probe service: a package of two libraries, and the results a test gives.
#include "platform/probe_service.h"

#include <map>
#include <string>

#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "platform/memory/world.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr int no_table = not_found_errno;  // as opening a file that is not there

struct probe_library {
  bool installed = true;
  field::library_use use;
};

struct probe_part {
  std::map<std::string, probe_library, std::less<>> libraries = {{"libqmon_infra.dll", {}},
                                                                 {"libqmon_infra_comp.dll", {}}};
  bool running = true;  // the service; its table stays when it ends
  unsigned table = 1;   // counts the tables that it has made
  unsigned opened = 0;  // the one that is open
  bool table_exists = true;
  std::map<std::uint32_t, qmon_stat_entry> operations;
};

// The table's functions are in one of the two.
bool loaded(const probe_part& part) {
  return part.libraries.find("libqmon_infra.dll")->second.use.held > 0;
}

}  // namespace

void* qmon_library_load(const char* name) noexcept {
  alloc_faults_paused pause;
  auto& libraries = world_part<probe_part>().libraries;
  const auto found = libraries.find(name);
  if (found == libraries.end()) {
    return nullptr;
  }
  ++found->second.use.asked_for;
  if (!found->second.installed && found->second.use.held == 0) {
    return nullptr;
  }
  ++found->second.use.held;
  return &found->second;
}

void qmon_library_unload(void* library) noexcept {
  if (library == nullptr) {
    return;
  }
  --static_cast<probe_library*>(library)->use.held;
  probe_part& part = world_part<probe_part>();
  if (!loaded(part)) {
    part.opened = 0;
  }
}

int qmon_ot_shm_client_init() noexcept {
  if (const int code = take_failure_code("qmon_ot_shm_client_init")) {
    return code;
  }
  probe_part& part = world_part<probe_part>();
  if (!loaded(part) || !part.table_exists || !part.running) {
    return no_table;
  }
  part.opened = part.table;
  return status_ok;
}

void* qmon_ot_shm_get_stat_tbl() noexcept {
  probe_part& part = world_part<probe_part>();
  return part.running && part.opened == part.table ? &part.operations : nullptr;
}

bool qmon_ot_stat_look_up(std::uint32_t op_id, const void* table, qmon_stat_entry* ret) noexcept {
  const probe_part& part = world_part<probe_part>();
  if (table == nullptr || !part.running) {
    return false;
  }
  const auto found = part.operations.find(op_id);
  if (found == part.operations.end()) {
    return false;
  }
  *ret = found->second;
  return true;
}

namespace field {

void probe_package_installed() {
  for (auto& [name, library] : world_part<probe_part>().libraries) {
    library.installed = true;
  }
}

void probe_package_removed() {
  for (auto& [name, library] : world_part<probe_part>().libraries) {
    library.installed = false;
  }
}

void probe_library_missing(std::string_view name) {
  world_part<probe_part>().libraries.find(name)->second.installed = false;
}

library_use probe_library_use(std::string_view name) {
  return world_part<probe_part>().libraries.find(name)->second.use;
}

void probe_service_gone() {
  world_part<probe_part>().running = false;
}

void probe_service_back() {
  probe_part& part = world_part<probe_part>();
  part.running = true;
  part.table_exists = true;
  ++part.table;
}

void probe_table_gone() {
  probe_part& part = world_part<probe_part>();
  part.table_exists = false;
  part.opened = 0;
}

void probe_result(std::uint32_t op_id, std::uint32_t return_code, std::uint32_t response_time) {
  world_part<probe_part>().operations[op_id] = {op_id, return_code, response_time};
}

void probe_stopped(std::uint32_t op_id) {
  world_part<probe_part>().operations.erase(op_id);
}

}  // namespace field
}  // namespace ot
