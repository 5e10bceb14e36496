// A simulation is loaded in two steps: the service starts with the configuration and finds objects
// in the states that its tracks report; then every track gets exactly the published state and the
// running delay that it has in the real service. From that moment on time counts, until no delay
// runs any more.
#include "tools/what_if/simulation.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>
#include <tuple>

#include "config/configuration_tree.h"
#include "core/track.h"
#include "platform/event_manager.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "platform/service.h"
#include "sources/bfd/client.h"
#include "state/ledger_state.h"
#include "state/timers.h"
#include "tools/what_if/objects.h"
#include "tools/what_if/timeline.h"

namespace ot::what_if {
namespace {

using namespace std::chrono_literals;

constexpr std::uint64_t ns_per_ms = 1'000'000;
constexpr std::uint64_t ms_per_second = 1000;
constexpr int instants_most = 1'000'000;

std::vector<std::string> all_paths(const question& asked) {
  std::vector<std::string> paths;
  for (const stored_item& item : asked.items) {
    paths.push_back(item.path);
  }
  for (const ledger_proposal& change : asked.changes) {
    paths.push_back(change.path);
  }
  return paths;
}

void for_each_track(const std::function<void(ot_track& track)>& visit) {
  std::vector<ot_track*> tracks;  // a visit may look tracks up, which moves the table's cursor
  for (auto* track = hash_db_first_data<ot_track>(tracks_table); track != nullptr;
       track = hash_db_next_data<ot_track>(tracks_table)) {
    tracks.push_back(track);
  }
  for (ot_track* track : tracks) {
    visit(*track);
  }
}

// The service on a router in memory, as the question says it is now.
class simulation {
 public:
  explicit simulation(const question& asked) : asked_(asked), router_(all_paths(asked)) {
    for (const stored_item& item : asked.items) {
      ledger_control_put(item.path, item.kind, item.bytes);
    }
    start();
    try {
      load();
    } catch (...) {
      stop();
      throw;
    }
  }
  ~simulation() { stop(); }
  simulation(const simulation&) = delete;
  simulation& operator=(const simulation&) = delete;

  // The changes of the configuration and what is assumed happen now.
  void let_it_happen(answer& ret);
  // Time passes until nothing changes any more.
  void let_time_pass(answer& ret);

 private:
  void start();
  void stop() noexcept;
  void load();
  void restore(ot_track& track, const present_track& present);
  void commit(std::string& ret_refusal);
  static bool still_moving();

  const question& asked_;
  router router_;
  evm* manager_ = nullptr;
  timeline timeline_;
};

void simulation::start() {
  if (evm_create(&manager_) != 0) {
    throw std::runtime_error("no event manager");
  }
  const std::size_t ended = field::threads_ended();
  if (const int status = ot_start(manager_, 1); status != 0) {
    stop();
    throw std::runtime_error("the service does not start on the router in memory, code " +
                             std::to_string(status));
  }
  // BFD tracks are made when its thread is connected.
  field::await([ended] { return is_ot_bfd_init_done != 0 || field::threads_ended() > ended; });
  field::run_pending();
}

void simulation::stop() noexcept {
  ot_stop();
  evm_destroy(manager_);
  manager_ = nullptr;
  ledger_control_restart();
}

void simulation::restore(ot_track& track, const present_track& present) {
  track.state = present.state;
  track.source_state = present.source;
  if (present.state != track_state::unknown) {
    ledger_write_track_state(track.name.c_str(), present.state);
  }
  ot_timer_ctx* ctx = get_timer_ctx(track.delay_timer);
  if (!present.delay || ctx == nullptr) {
    return;
  }
  ctx->name = track.name;
  ctx->value = static_cast<std::uint32_t>(present.delay->to);
  const std::uint64_t left = present.delay->remaining_ms;
  wtm_timer_leaf_start(track.delay_timer, static_cast<std::uint32_t>(left / ms_per_second),
                       static_cast<std::uint32_t>(left % ms_per_second * ns_per_ms));
}

void simulation::load() {
  std::map<std::string, const present_track*, std::less<>> present;
  for (const present_track& track : asked_.tracks) {
    present.emplace(track.name, &track);
  }
  for_each_track([&](const ot_track& track) {
    if (const auto found = present.find(track.name.view()); found != present.end()) {
      router_.bring(track, found->second->source);
    }
  });
  field::run_pending();
  for_each_track(poll_once);
  field::advance(1s);  // lists are computed, notifications sent
  for_each_track([&](ot_track& track) {
    stop_ot_timer(track.delay_timer);
    if (const auto found = present.find(track.name.view()); found != present.end()) {
      restore(track, *found->second);
    }
  });
  stop_ot_timer(tracks_calc_timer);  // what is published in the real service it has computed there
  timeline_.begin();
}

void simulation::commit(std::string& ret_refusal) {
  std::vector<ledger_refusal> refusals;
  const int code = ledger_commit(ledger_get_default_conn(), asked_.changes, &refusals);
  if (code == 0) {
    return;
  }
  ret_refusal = "code " + std::to_string(code);
  for (const ledger_refusal& refusal : refusals) {
    ret_refusal += "; " + refusal.path + ": " + refusal.text;
  }
}

void simulation::let_it_happen(answer& ret) {
  if (!asked_.changes.empty()) {
    commit(ret.refusal);
    field::run_pending();
  }
  for (const assumption& each : asked_.assumptions) {
    if (const ot_track* track = hash_db_get_track_item(each.track.c_str())) {
      router_.bring(*track, each.state);
    }
  }
  field::run_pending();
  for (const assumption& each : asked_.assumptions) {
    if (ot_track* track = hash_db_get_track_item(each.track.c_str())) {
      poll_once(*track);
    }
    const ot_track* track = hash_db_get_track_item(each.track.c_str());
    if (track == nullptr || track->source_state != each.state) {
      ret.unmet.push_back(each.track);
    }
  }
  for_each_track(poll_no_more);
  timeline_.look(ret);
}

void simulation::let_time_pass(answer& ret) {
  for (int instants = 0; still_moving() && instants < instants_most; ++instants) {
    field::advance_to_next();
    timeline_.look(ret);
  }
}

bool simulation::still_moving() {
  bool moving = wtm_timer_leaf_running(tracks_calc_timer);
  for_each_track(
      [&](const ot_track& track) { moving |= wtm_timer_leaf_running(track.delay_timer); });
  return moving;
}

answer run(const question& asked) {
  answer found;
  simulation service(asked);
  service.let_it_happen(found);
  service.let_time_pass(found);
  return found;
}

// What happens without any change or assumption.
std::vector<change> changes_anyway(const question& asked) {
  question plain = asked;
  plain.changes.clear();
  plain.assumptions.clear();
  return run(plain).changes;
}

}  // namespace

answer simulate(const question& asked) {
  answer found = run(asked);
  const bool any_delay = std::any_of(asked.tracks.begin(), asked.tracks.end(),
                                     [](const auto& track) { return track.delay.has_value(); });
  if (!any_delay) {
    return found;
  }
  using key = std::tuple<std::uint64_t, std::string, std::string>;
  std::set<key> anyway;
  for (const change& each : changes_anyway(asked)) {
    anyway.emplace(each.after_ms, each.track, each.to);
  }
  for (change& each : found.changes) {
    each.anyway = anyway.contains({each.after_ms, each.track, each.to});
  }
  return found;
}

}  // namespace ot::what_if
