// The start of the service as one table of steps, and its stop as the same table backwards. The
// order matters: timers and tables before anything looks into them, what publishes before the
// connections that report states, and the stored configuration last. Each kind of tracks brings its
// own steps.

#include <cstdio>
#include <iterator>
#include <span>

#include "config/configuration_tree.h"
#include "config/lifecycle.h"
#include "core/connections.h"
#include "core/debug.h"
#include "core/start_step.h"
#include "core/track.h"
#include "core/track_kind.h"
#include "oper/outlets/events.h"
#include "oper/outlets/notifications.h"
#include "oper/records/engine.h"
#include "oper/records/history.h"
#include "oper/records/provider.h"
#include "oper/records/states.h"
#include "oper/records/track_records.h"
#include "oper/records/tracking_interfaces.h"
#include "platform/err_string.h"
#include "platform/service.h"
#include "platform/status.h"
#include "state/history.h"
#include "state/ledger_state.h"
#include "state/list_evaluation.h"
#include "state/publication.h"
#include "state/timers.h"
#include "state/track_record.h"

namespace ot {
namespace {

int open_timers(const start_context& context) {
  set_timer_hook(timer_kind::list_calculation, [](const ot_timer_ctx&) {
    object_tracking_calc_tracks_state_after_timer_expired();
  });
  set_timer_hook(timer_kind::track_delay, publish_after_delay);
  set_timer_hook(timer_kind::notification, send_delayed_notifications);
  return ot_timers_init(context.manager);
}

// The records outlive a service that is stopped and started again in one process.
int register_records(const start_context&) {
  int status = ot_records_register();
  if (status == status_ok || status == duplicate_key) {
    status = ot_engine_record_register();
  }
  if (status == status_ok || status == duplicate_key) {
    status = ot_history_record_register();
  }
  return status == duplicate_key ? status_ok : status;
}

// A run function of something that needs no context.
template <int (*Do)() noexcept>
int without_context(const start_context&) {
  return Do();
}

constexpr start_step basic_steps[] = {
    {"trace flags", [](const start_context& c) { return ot_debug_init(c.manager); }},
    {"connections",
     [](const start_context&) {
       forget_connections();
       return status_ok;
     }},
    {"history",
     [](const start_context&) {
       forget_history();
       return status_ok;
     }},
    {"timers", open_timers, ot_timers_stop},
    {"process timers", without_context<ot_process_timers_create>},
    {"track table", without_context<tracks_table_create>, drop_all_tracks},
};

constexpr start_step outlet_steps[] = {
    {"published states", without_context<ot_ha_ledger_bind>, ot_ha_ledger_unbind},
    {"change notifications", without_context<ot_ledger_oper_bind>,
     []() noexcept {
       ot_notifications_drop();
       ot_ledger_oper_unbind();
     }},
    {"operational records", register_records},
    {"tracking interfaces", without_context<read_tracking_interfaces>, forget_tracking_interfaces},
    {"operational data", without_context<ot_oper_provider_register>},
    {"history data", without_context<ot_history_provider_register>},
    {"states", without_context<ot_states_provider_register>},
    {"engine data", [](const start_context& c) { return ot_engine_provider_register(c.manager); }},
    {"event publisher",
     [](const start_context& c) {
       ot_ep_register(c.manager, nullptr);
       return status_ok;
     },
     []() noexcept { ot_ep_evd_handle = nullptr; }},
};

constexpr start_step configuration_steps[] = {
    {"restart flag",
     [](const start_context& c) {
       ot_set_restart(c.start_count);
       return status_ok;
     },
     []() noexcept { ot_set_restart(0); }},
    {"configuration tree", without_context<ot_configuration_register>},
    {"stored configuration", [](const start_context&) { return ot_configuration_replay(); }},
    {"states of tracks that are gone",
     [](const start_context&) { return delete_states_without_track(); }},
};

// The service's own steps, and which steps of all kinds follow them.
struct start_phase {
  std::span<const start_step> steps;
  std::span<const start_step> track_kind::*of_kinds = nullptr;
};
constexpr start_phase phases[] = {
    {basic_steps, &track_kind::tables},
    {outlet_steps, &track_kind::connections},
    {configuration_steps},
};

int run_steps(std::span<const start_step> steps, const start_context& context) {
  for (const start_step& step : steps) {
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

void undo_steps(std::span<const start_step> steps) noexcept {
  for (auto step = steps.rbegin(); step != steps.rend(); ++step) {
    if (step->undo != nullptr) {
      step->undo();
    }
  }
}

}  // namespace

int ot_start(evm* manager, std::uint32_t start_count) {
  const start_context context{manager, start_count};
  for (const start_phase& phase : phases) {
    int status = run_steps(phase.steps, context);
    for (const track_kind* kind : track_kinds()) {
      if (status == status_ok && phase.of_kinds != nullptr) {
        status = run_steps(kind->*phase.of_kinds, context);
      }
    }
    if (status != status_ok) {
      return status;
    }
  }
  return status_ok;
}

void ot_stop() noexcept {
  const std::span<const track_kind* const> kinds = track_kinds();
  for (auto phase = std::rbegin(phases); phase != std::rend(phases); ++phase) {
    for (auto kind = kinds.rbegin(); kind != kinds.rend() && phase->of_kinds != nullptr; ++kind) {
      undo_steps((*kind)->*phase->of_kinds);
    }
    undo_steps(phase->steps);
  }
}

}  // namespace ot
