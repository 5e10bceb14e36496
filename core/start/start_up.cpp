// The service's start-up as one table. The order matters: tables before anything looks into them,
// timers and the ledger binding before states are published, interfaces before the configuration
// that names them, the restart flag before tracks are created, and the configuration last.

#include <array>
#include <cstdio>

#include "config/configuration_tree.h"
#include "config/track_record.h"
#include "core/connections.h"
#include "core/debug.h"
#include "core/restart.h"
#include "core/start/main.h"
#include "core/track.h"
#include "oper/outlets/events.h"
#include "oper/outlets/notifications.h"
#include "oper/records/engine_provider.h"
#include "oper/records/engine_record.h"
#include "oper/records/provider.h"
#include "oper/records/track_records.h"
#include "oper/records/tracking_interfaces.h"
#include "platform/bfd_client.h"
#include "platform/process.h"
#include "platform/status.h"
#include "sources/bfd/pending.h"
#include "sources/bfd/sessions.h"
#include "sources/bfd/table.h"
#include "sources/bfd/thread.h"
#include "sources/interface/client.h"
#include "sources/interface/table.h"
#include "sources/probe/statistics.h"
#include "sources/probe/table.h"
#include "sources/route/fib_connection.h"
#include "sources/route/pending.h"
#include "sources/route/table.h"
#include "sources/route/vrf_connection.h"
#include "state/ledger_state.h"
#include "state/timers.h"

namespace ot {
namespace {

struct start_context {
  evm* manager;
  std::uint32_t start_count;
};

int open_interface_manager(const start_context& context) {
  const int status = ot_init(context.manager);
  return status == open_in_progress ? status_ok : status;
}

// A stored BFD track needs its session before its delays are applied; without a service there is
// nothing to wait for.
int wait_for_bfd(const start_context& context) {
  process_wait(context.manager,
               [] { return is_ot_bfd_connection_up != 0 || !bfdc_service_present(); });
  return status_ok;
}

// The records outlive a service that is stopped and started again in one process.
int register_records(const start_context&) {
  int status = ot_records_register();
  if (status == status_ok || status == duplicate_key) {
    status = ot_engine_record_register();
  }
  return status == duplicate_key ? status_ok : status;
}

struct start_step {
  const char* what;
  int (*run)(const start_context& context);
};

constexpr std::array start_steps = {
    start_step{"trace flags", [](const start_context& c) { return ot_debug_init(c.manager); }},
    start_step{"connections",
               [](const start_context&) {
                 forget_connections();
                 return status_ok;
               }},
    start_step{"track table", [](const start_context&) { return tracks_table_create(); }},
    start_step{"interface table", [](const start_context&) { return interfaces_table_create(); }},
    start_step{"route table", [](const start_context&) { return ipv4_route_table_create(); }},
    start_step{"probe table", [](const start_context&) { return prb_table_create(); }},
    start_step{"BFD table", [](const start_context&) { return bfdprb_table_create(); }},
    start_step{"timers", [](const start_context& c) { return ot_timers_init(c.manager); }},
    start_step{"process timers", [](const start_context&) { return ot_process_timers_create(); }},
    start_step{"published states", [](const start_context&) { return ot_ha_ledger_bind(); }},
    start_step{"change notifications", [](const start_context&) { return ot_ledger_oper_bind(); }},
    start_step{"operational records", register_records},
    start_step{"operational data",
               [](const start_context&) { return ot_oper_provider_register(); }},
    start_step{"engine data", [](const start_context&) { return ot_engine_provider_register(); }},
    start_step{"event publisher",
               [](const start_context& c) {
                 ot_ep_register(c.manager, nullptr);
                 return status_ok;
               }},
    start_step{"interface manager", open_interface_manager},
    start_step{"VRF service", [](const start_context& c) { return ot_vmap_init(c.manager); }},
    start_step{"FIB", [](const start_context& c) { return ot_fec_init(c.manager); }},
    start_step{"BFD thread", [](const start_context& c) { return ot_bfd_init(c.manager); }},
    start_step{"restart flag",
               [](const start_context& c) {
                 ot_set_restart(c.start_count);
                 return status_ok;
               }},
    start_step{"configuration tree",
               [](const start_context&) { return ot_configuration_register(); }},
    start_step{"BFD connection", wait_for_bfd},
    start_step{"stored configuration",
               [](const start_context&) { return ot_configuration_replay(); }},
};

}  // namespace

int ot_start(evm* manager, std::uint32_t start_count) {
  const start_context context{manager, start_count};
  for (const start_step& step : start_steps) {
    const int status = step.run(context);
    if (status != status_ok) {
      char text[128];
      std::snprintf(text, sizeof text, "start-up failed at: %s (%s)", step.what,
                    err_string(status));
      errmsg_log(&kor_msg_rec_ot_init_fail, kor_msg_rec_ot_init_fail.severity, text);
      return status;
    }
  }
  return status_ok;
}

void ot_stop() noexcept {
  ot_ifm_close();
  ot_fec_close();
  ot_vmap_stop();
  ot_bfd_stop();
  drop_all_tracks();
  drop_all_interfaces();
  drop_all_routes();
  drop_all_probes();
  release_probe_package();
  drop_all_bfd_sessions();
  drop_bfd_cfgs();
  drop_pending_routes();
  ot_notifications_drop();
  forget_tracking_interfaces();
  ot_ledger_oper_unbind();
  ot_ha_ledger_unbind();
  ot_timers_stop();
  ot_ep_evd_handle = nullptr;
  ot_set_restart(0);
}

}  // namespace ot
