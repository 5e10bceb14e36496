// One calculation of all lists, with nothing changed and with a change that travels through all of
// them. The order of the table decides which list of a chain is computed first, so the names are
// dealt out in that order.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include "config/delays.h"
#include "lists/boolean_list.h"
#include "lists/threshold_list.h"
#include "platform/event_manager.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "platform/service.h"
#include "state/list_evaluation.h"
#include "state/publication.h"

namespace ot {
namespace {

constexpr const char* leaf = "leaf";

// The service with `count` tracks to be made lists of, and one that is none.
class router {
 public:
  explicit router(std::size_t count) {
    field::reset();
    ledger_control_reset();
    if (evm_create(&manager_) != 0 || ot_start(manager_, 1) != 0) std::abort();
    make(leaf);
    for (std::size_t i = 0; i + 1 < count; ++i) make("list" + std::to_string(i));
    for (auto* track = hash_db_first_data<ot_track>(tracks_table); track != nullptr;
         track = hash_db_next_data<ot_track>(tracks_table)) {
      if (track->name != leaf) names_.emplace_back(track->name.c_str());
    }
  }
  ~router() {
    ot_stop();
    evm_destroy(manager_);
  }
  router(const router&) = delete;
  router& operator=(const router&) = delete;

  // The names of the lists in the order of the table.
  const std::vector<std::string>& names() const { return names_; }

  static void make(const std::string& name) {
    if (object_tracking_set_create_track_delay(name.c_str(), 0, 0, true) != 0) std::abort();
  }

  static void add(const std::string& list, const std::string& member) {
    if (object_tracking_type_bool_create(list.c_str(), track_type::boolean_or, member.c_str(), 0)) {
      std::abort();
    }
  }

  // To a threshold list that is up when one of its members is.
  static void add_weighted(const std::string& list, const std::string& member) {
    if (ot_thld_create_track(list.c_str(), track_type::threshold_weight, member.c_str(), 1)) {
      std::abort();
    }
    ot_track* track = hash_db_get_track_item(list.c_str());
    track->threshold_up = UINT32_MAX;
    track->threshold_down = 1;
  }

  // Gives the leaf its other state, and drops what the platform in memory has collected.
  void flip() {
    state_ = state_ == track_state::up ? track_state::down : track_state::up;
    hash_db_get_track_item(leaf)->source_state = state_;
    object_tracking_set_track_state_in_ledger(leaf, state_);
  }
  static void tidy() {
    field::advance(std::chrono::seconds(1));
    field::take_messages();
    ledger_control_take_notifications();
  }

  // Whether every list has the leaf's state.
  bool settled() const {
    return std::all_of(names_.begin(), names_.end(), [this](const std::string& name) {
      return hash_db_get_track_item(name.c_str())->state == state_;
    });
  }

 private:
  evm* manager_ = nullptr;
  std::vector<std::string> names_;
  track_state state_ = track_state::unknown;
};

// --- Shapes --------------------------------------------------------------------------------------

// Each list has the next in that order as its member: a pass computes one list.
void chain_in_worst_order(const router& lists) {
  const auto& names = lists.names();
  for (std::size_t i = 0; i + 1 < names.size(); ++i) router::add(names[i], names[i + 1]);
  router::add(names.back(), leaf);
}

void chain_in_best_order(const router& lists) {
  const auto& names = lists.names();
  for (std::size_t i = 1; i < names.size(); ++i) router::add(names[i], names[i - 1]);
  router::add(names.front(), leaf);
}

// Lists of plain tracks, four members each.
void ordinary(const router& lists) {
  for (const std::string& name : lists.names()) {
    for (const char* member : {leaf, "nobody", "no one", "not there"}) router::add(name, member);
  }
}

// Two members a list, the leaves of the tree on the one track.
void balanced_tree(const router& lists) {
  const auto& names = lists.names();
  for (std::size_t i = 0; i < names.size(); ++i) {
    for (const std::size_t child : {2 * i + 1, 2 * i + 2}) {
      router::add(names[i], child < names.size() ? names[child] : leaf);
    }
  }
}

// Members of each list of the two shapes below.
constexpr std::size_t many = 200;

using adding = void (*)(const std::string& list, const std::string& member);

// Each list has the lists behind it as members, the farthest first, which is computed first.
template <adding Add>
void chains_of_many_members(const router& lists) {
  const auto& names = lists.names();
  for (std::size_t i = 0; i < names.size(); ++i) {
    for (std::size_t ahead = 1; ahead <= many; ++ahead) {
      Add(names[i], i + ahead < names.size() ? names[i + ahead] : leaf);
    }
  }
}

// The same, each list's members added in turn, so that they do not lie side by side in memory, and
// of plain tracks but for one: the list behind it, which comes last.
template <adding Add>
void scattered_members(const router& lists) {
  const auto& names = lists.names();
  for (std::size_t number = 1; number < many; ++number) {
    router::make("plain" + std::to_string(number));
  }
  for (std::size_t number = 0; number < many; ++number) {
    for (std::size_t i = 0; i < names.size(); ++i) {
      const std::string next = i + 1 < names.size() ? names[i + 1] : leaf;
      Add(names[i], number == 0 ? next : "plain" + std::to_string(number));
    }
  }
}

// Two lists that contain each other, at both ends of the table.
void two_in_a_cycle(const router& lists) {
  const auto& names = lists.names();
  for (std::size_t i = 1; i + 1 < names.size(); ++i) {
    for (const char* member : {leaf, "nobody", "no one", "not there"})
      router::add(names[i], member);
  }
  router::add(names.front(), names.back());
  router::add(names.back(), names.front());
}

void all_in_a_cycle(const router& lists) {
  const auto& names = lists.names();
  for (std::size_t i = 0; i < names.size(); ++i)
    router::add(names[i], names[(i + 1) % names.size()]);
}

using shape = void (*)(const router&);

// --- Measurements --------------------------------------------------------------------------------

// Nothing to publish: what one calculation costs by itself.
void list_calculation(benchmark::State& state, shape build) {
  router lists(static_cast<std::size_t>(state.range(0)));
  build(lists);
  lists.flip();
  router::tidy();
  if (!lists.settled()) std::abort();
  for (auto _ : state) {
    object_tracking_calc_tracks_state_after_timer_expired();
  }
}

// Every list changes its state and publishes it.
void list_change(benchmark::State& state, shape build) {
  router lists(static_cast<std::size_t>(state.range(0)));
  build(lists);
  lists.flip();
  router::tidy();
  for (auto _ : state) {
    state.PauseTiming();
    lists.flip();
    state.ResumeTiming();
    object_tracking_calc_tracks_state_after_timer_expired();
    state.PauseTiming();
    if (!lists.settled()) std::abort();
    router::tidy();
    state.ResumeTiming();
  }
}

// With lists that are never computed.
void list_cycle(benchmark::State& state, shape build) {
  router lists(static_cast<std::size_t>(state.range(0)));
  build(lists);
  lists.flip();
  router::tidy();
  if (lists.settled()) std::abort();
  for (auto _ : state) {
    object_tracking_calc_tracks_state_after_timer_expired();
  }
}

BENCHMARK_CAPTURE(list_calculation, chain_worst, chain_in_worst_order)->Arg(1500);
BENCHMARK_CAPTURE(list_calculation, chain_best, chain_in_best_order)->Arg(1500);
BENCHMARK_CAPTURE(list_calculation, ordinary, ordinary)->Arg(1500);
BENCHMARK_CAPTURE(list_calculation, tree, balanced_tree)->Arg(1500);
BENCHMARK_CAPTURE(list_calculation, many_boolean, chains_of_many_members<router::add>)->Arg(1500);
BENCHMARK_CAPTURE(list_calculation, many_weighted, chains_of_many_members<router::add_weighted>)
    ->Arg(1500);
BENCHMARK_CAPTURE(list_calculation, many_scattered, scattered_members<router::add_weighted>)
    ->Arg(1500);
BENCHMARK_CAPTURE(list_cycle, two, two_in_a_cycle)->Arg(1500);
BENCHMARK_CAPTURE(list_cycle, all, all_in_a_cycle)->Arg(1500);
BENCHMARK_CAPTURE(list_change, chain_worst, chain_in_worst_order)->Arg(1500);
BENCHMARK_CAPTURE(list_change, many_boolean, chains_of_many_members<router::add>)->Arg(1500);
BENCHMARK_CAPTURE(list_change, many_weighted, chains_of_many_members<router::add_weighted>)
    ->Arg(1500);
BENCHMARK_CAPTURE(list_change, ordinary, ordinary)->Arg(1500);
BENCHMARK_CAPTURE(list_change, tree, balanced_tree)->Arg(1500);

// One list of all other tracks, which all are down and so all are looked at.
void list_wide(benchmark::State& state, track_type type) {
  router lists(static_cast<std::size_t>(state.range(0)));
  std::vector<std::string> members(lists.names().begin() + 1, lists.names().end());
  members.emplace_back(leaf);
  for (const std::string& name : members) {
    if (ot_thld_create_track(lists.names().front().c_str(), type, name.c_str(), 1)) std::abort();
  }
  router::tidy();
  for (auto _ : state) {
    object_tracking_calc_tracks_state_after_timer_expired();
  }
}
BENCHMARK_CAPTURE(list_wide, boolean, track_type::boolean_or)->Arg(1500);
BENCHMARK_CAPTURE(list_wide, percentage, track_type::threshold_percentage)->Arg(1500);

}  // namespace
}  // namespace ot
