// Running a history. The service is driven through its apply functions, which is what the ledger
// would call; what the ledger adds, old values above all, is kept here.
#include <algorithm>
#include <array>
#include <chrono>
#include <map>
#include <tuple>

#include "config/delays.h"
#include "config/lifecycle.h"
#include "lists/configuration.h"
#include "lists/threshold_list.h"
#include "platform/memory/controls.h"
#include "state/publication.h"
#include "state/timers.h"
#include "tests/support/ledger_proposals.h"
#include "tests/unit/lists/cases.h"

namespace ot::test {
namespace {

// One change of a u32 item, as the ledger hands it to an apply function.
class item_change {
 public:
  // The texts must outlive the change.
  item_change(std::uint32_t event, const std::string& track, std::uint32_t type, const char* last,
              std::uint32_t number)
      : fields_{{{track.c_str(), 0}, {"", type}, {last, number}}} {
    change_.event = event;
    change_.fields = fields_;
  }
  void set_old(std::uint32_t value) { change_.old_value = hold(old_, value); }
  void set_new(std::uint32_t value) { change_.new_value = hold(new_, value); }
  const ledger_change& get() const { return change_; }

 private:
  static const ledger_value* hold(ledger_value& place, std::uint32_t value) {
    ledger_value_assign(place, ledger_kind::u32, bytes_of_numbers({value}));
    return &place;
  }
  std::array<ledger_path_field, 3> fields_;
  ledger_value old_;
  ledger_value new_;
  ledger_change change_;
};

class runner {
 public:
  explicit runner(list_model& model) : model_(model) {}

  std::string run(const history& steps) {
    std::string difference;
    for (std::size_t i = 0; i < steps.size() && difference.empty(); ++i) {
      difference = take(steps[i]);
    }
    return difference;
  }

  void clean_up() {
    while (const auto* track = hash_db_first_data<ot_track>(tracks_table)) {
      const track_name name = track->name;
      object_tracking_track_delete(name.c_str());
    }
    field::advance(std::chrono::seconds(10));
    field::take_messages();
  }

 private:
  std::string take(const step& s) {
    const std::string track = step_name(s.track);
    switch (s.kind) {
      case step_kind::report:
        report(track, s.a);
        break;
      case step_kind::member:
        member(s, track, step_name(s.other));
        break;
      case step_kind::drop_member:
        drop_member(s, track, step_name(s.other));
        break;
      case step_kind::limits:
        limits(s, track);
        break;
      case step_kind::delays:
        object_tracking_set_create_track_delay(track.c_str(), static_cast<int>(s.a),
                                               static_cast<int>(s.b), true);
        model_.set_delays(track, s.a, s.b);
        break;
      case step_kind::erase:
        object_tracking_track_delete(track.c_str());
        model_.erase(track);
        forget_items(s.track);
        break;
      case step_kind::wait:
        field::advance(std::chrono::milliseconds(s.a));
        model_.wait(s.a);
        return difference();
    }
    return {};
  }

  // What a source does with a state of its object.
  void report(const std::string& name, std::uint32_t number) {
    const auto state = static_cast<track_state>(number);
    ot_track* track = hash_db_get_track_item(name.c_str());
    if (track != nullptr && !is_list_type(track->type) && track->source_state != state) {
      track->source_state = state;
      object_tracking_set_track_state_in_ledger(name.c_str(), state);
    }
    model_.report(name, number);
  }

  void member(const step& s, const std::string& list, const std::string& name) {
    const auto [item, fresh] = members_.try_emplace({s.track, s.type, s.other}, s.a);
    item_change change(fresh ? ledger_event_create : ledger_event_set, list, s.type, name.c_str(),
                       0);
    change.set_new(s.a);
    const bool has_old = !fresh && s.b == 0;
    if (has_old) change.set_old(item->second);
    object_tracking_type_list_object_apply(change.get());
    const bool same = has_old && item->second == s.a;
    item->second = s.a;
    if (same) return;
    if (has_old) model_.drop_member(list, name);
    model_.make_member(list, s.type, {name, s.a});
    model_.request_calculation();
  }

  void drop_member(const step& s, const std::string& list, const std::string& name) {
    if (members_.erase({s.track, s.type, s.other}) == 0) return;
    object_tracking_type_list_object_apply(
        item_change(ledger_event_delete, list, s.type, name.c_str(), 0).get());
    model_.drop_member(list, name);
    model_.request_calculation();
  }

  // Changed limits have another path as a rule; a present item of the same path is set.
  void limits(const step& s, const std::string& list) {
    const bool fresh = limits_.find({s.track, s.type, s.a}) == limits_.end();
    item_change change(fresh ? ledger_event_create : ledger_event_set, list, s.type, "", s.a);
    change.set_new(s.b);
    ledger_verdict verdict;
    const int refusal = object_tracking_type_threshold_object_limits_verify(change.get(), verdict);
    if (s.a == 0 || s.a <= s.b) {
      if (refusal == 0) refusal_missing_ = true;
      return;
    }
    limits_[{s.track, s.type, s.a}] = s.b;
    object_tracking_type_threshold_object_crt_apply(change.get());
    if (fresh) {
      model_.make_limits(list, s.type, s.a, s.b);
    } else {
      model_.change_limits(list, s.type, s.a, s.b);
    }
    model_.request_calculation();
  }

  void forget_items(std::uint32_t track) {
    const auto of_track = [track](const auto& item) { return std::get<0>(item.first) == track; };
    std::erase_if(members_, of_track);
    std::erase_if(limits_, of_track);
  }

  std::string difference() const;
  std::string difference_of_changes() const;

  using item_key = std::tuple<std::uint32_t, std::uint32_t, std::uint32_t>;
  list_model& model_;
  std::map<item_key, std::uint32_t> members_;
  std::map<item_key, std::uint32_t> limits_;
  bool refusal_missing_ = false;
};

// What is compared of a track.
struct view {
  const char* what;
  std::uint32_t service;
  std::uint32_t model;
};

std::string compare(const ot_track& track, const model_track& model) {
  const view views[] = {
      {"type", static_cast<std::uint32_t>(track.type), model.type},
      {"source state", static_cast<std::uint32_t>(track.source_state), model.source},
      {"published state", static_cast<std::uint32_t>(track.state), model.state},
      {"publications", track.state_change_counter, model.publications},
      {"delay running", wtm_timer_leaf_running(track.delay_timer), model.delay->running},
  };
  for (const view& one : views) {
    if (one.service != one.model) {
      return model.name + ": " + one.what + " is " + std::to_string(one.service) +
             " and should be " + std::to_string(one.model);
    }
  }
  return {};
}

// What was published, and in which order.
std::string runner::difference_of_changes() const {
  const std::vector<std::string> wanted = model_.take_changes();
  const std::vector<std::string> logged = field::take_messages();
  for (std::size_t i = 0; i < std::max(wanted.size(), logged.size()); ++i) {
    const std::string is = i < logged.size() ? logged[i] : "nothing";
    const std::string should =
        i < wanted.size() ? "OT-SERVICES-6-TRACK_INFO: " + wanted[i] : "nothing";
    if (is != should) return "what was published is " + is + " and should be " + should;
  }
  return {};
}

std::string runner::difference() const {
  if (refusal_missing_) return "limits that should be refused were accepted";
  if (std::string found = difference_of_changes(); !found.empty()) return found;
  const auto* track = hash_db_first_data<ot_track>(tracks_table);
  for (const model_track& model : model_.tracks()) {
    if (track == nullptr || model.name != track->name.c_str()) {
      return model.name + " is not where the walk should meet it";
    }
    std::string found = compare(*track, model);
    if (!found.empty()) return found;
    track = hash_db_next_data<ot_track>(tracks_table);
  }
  return track == nullptr ? "" : std::string(track->name.c_str()) + " should not exist";
}

}  // namespace

std::string run_history(const history& steps, list_model& model) {
  runner run(model);
  std::string difference = run.run(steps);
  run.clean_up();
  return difference;
}

}  // namespace ot::test
