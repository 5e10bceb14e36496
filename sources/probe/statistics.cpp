// One look-up in shared memory for each read; no message goes to the probe service.

#include "sources/probe/statistics.h"

#include <optional>
#include <utility>

#include "core/connections.h"
#include "core/debug.h"
#include "platform/probe_service.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr std::uint32_t code_success = 1;
constexpr std::uint32_t code_no_result = 0;

// The table lies in what the libraries have mapped, so what was loaded for reading is not unloaded
// again. Once is enough: a count of loads that only rises would wrap one day.
std::optional<probe_package> kept_package;

void keep_loaded(probe_package package) noexcept {
  if (!kept_package.has_value()) {
    kept_package.emplace(std::move(package));
  }
}

void* statistics_table() noexcept {
  void* table = qmon_ot_shm_get_stat_tbl();
  if (table != nullptr) {
    return table;
  }
  OT_TRACE_ERROR("Failed to initialize the stats table ");
  track_prb_init();
  table = qmon_ot_shm_get_stat_tbl();
  if (table == nullptr) {
    OT_TRACE_ERROR("Failed to initialize the stats tableafter shared mem window open");
  }
  return table;
}

}  // namespace

probe_package::probe_package() noexcept : infrastructure_(qmon_library_load("libqmon_infra.dll")) {
  if (infrastructure_ != nullptr) {
    component_ = qmon_library_load("libqmon_infra_comp.dll");
  }
}

probe_package::~probe_package() {
  for (void* library : {component_, infrastructure_}) {
    if (library != nullptr) {
      qmon_library_unload(library);
    }
  }
}

probe_package::probe_package(probe_package&& other) noexcept
    : infrastructure_(std::exchange(other.infrastructure_, nullptr)),
      component_(std::exchange(other.component_, nullptr)) {}

void look_for_probe_service() noexcept {
  if (qmon_ot_shm_get_stat_tbl() == nullptr) {
    track_prb_init();
  }
  note_connection(router_service::probe_service, qmon_ot_shm_get_stat_tbl() != nullptr);
}

void release_probe_package() noexcept {
  kept_package.reset();
}

void track_prb_init() noexcept {
  OT_TRACE_ENTRY();
  probe_package package;
  if (!package.available()) {
    OT_TRACE_DETAIL("Manageability package is not available");
    return;
  }
  keep_loaded(std::move(package));
  if (qmon_ot_shm_client_init() != status_ok) {
    OT_TRACE_DETAIL(" Failed to initialize qmon shared mem ");
  } else {
    OT_TRACE_DETAIL(" Succesfully initialized qmon shm in read only mode ");
  }
}

int shm_read_qmon_stats(std::int32_t op_id, qmon_stats* stats) noexcept {
  OT_TRACE_ENTRY();
  if (stats == nullptr) {
    OT_TRACE_ERROR(" (%s) : invalid arg ", __func__);
    return invalid_argument;
  }
  probe_package package;
  if (!package.available()) {
    note_connection(router_service::probe_service, false);
    return probe_package_not_available;
  }
  keep_loaded(std::move(package));
  qmon_stat_entry entry;
  const void* table = statistics_table();
  note_connection(router_service::probe_service, table != nullptr);
  if (!qmon_ot_stat_look_up(static_cast<std::uint32_t>(op_id), table, &entry)) {
    OT_TRACE_DETAIL(" Corresponding qmon operation with op id %d is not running ", op_id);
    *stats = qmon_stats{};
    return status_ok;
  }
  OT_TRACE_DETAIL(" Reading from qmon shared mem ");
  stats->latestReturnCode = entry.return_code;
  stats->latestResponseTime = entry.response_time;
  return status_ok;
}

track_state state_of_return_code(std::uint32_t code) noexcept {
  switch (code) {
    case code_success:
      return track_state::up;
    case code_no_result:
      return track_state::unknown;
    default:
      return track_state::down;
  }
}

}  // namespace ot
