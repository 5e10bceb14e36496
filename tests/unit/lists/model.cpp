// The rules of publication, delays and lists over plain values. Slow and simple on purpose.
#include "tests/unit/lists/model.h"

#include <algorithm>
#include <array>
#include <utility>

namespace ot::test {
namespace {

constexpr std::uint32_t up = 1;
constexpr std::uint32_t down = 2;

bool is_boolean(std::uint32_t type) {
  return type == 3 || type == 4;
}
bool is_list(std::uint32_t type) {
  return is_boolean(type) || type == 7 || type == 8;
}

bool in_walk_order(const model_track& a, const model_track& b) {
  return a.bucket != b.bucket ? a.bucket < b.bucket : a.made < b.made;
}

bool is_earlier(const model_delay& a, const model_delay& b) {
  return a.due != b.due ? a.due < b.due : a.started < b.started;
}

}  // namespace

std::uint32_t bucket_of(const std::string& name, std::uint32_t buckets) {
  std::uint32_t hash = 0;
  for (const char c : name) {
    const auto wide = static_cast<std::uint32_t>(static_cast<int>(static_cast<signed char>(c)));
    hash = ((hash * 128U + wide) % buckets) * 65599U + wide;
  }
  return hash % buckets;
}

void list_model::index_tracks() {
  places_.clear();
  for (std::size_t place = 0; place < tracks_.size(); ++place) places_[tracks_[place].name] = place;
}

const model_track* list_model::find(const std::string& name) const {
  const auto found = places_.find(name);
  return found == places_.end() ? nullptr : &tracks_[found->second];
}

model_track* list_model::find(const std::string& name) {
  return const_cast<model_track*>(std::as_const(*this).find(name));
}

std::vector<std::string> list_model::take_changes() {
  return std::exchange(changes_, {});
}

model_track& list_model::make(const std::string& name, std::uint32_t type) {
  if (model_track* present = find(name)) {
    present->type = type;
    return *present;
  }
  model_track track;
  track.name = name;
  track.bucket = bucket_of(name, buckets_);
  track.made = ++counter_;
  track.type = type;
  track.delay = std::make_shared<model_delay>();
  track.delay->track = name;
  // What a predecessor's delay held back is over.
  if (std::erase_if(running_, [&](const auto& delay) { return delay->track == name; }) > 0) {
    request_calculation();
  }
  const auto place = std::upper_bound(tracks_.begin(), tracks_.end(), track, in_walk_order);
  tracks_.insert(place, track);
  index_tracks();
  return *find(name);
}

void list_model::make_member(const std::string& list, std::uint32_t type,
                             const model_member& member) {
  model_member stored = member;
  if (is_boolean(type)) stored.value = member.value == 0 ? 0 : 1;
  if (type == 8) stored.value = 1;
  model_track& track = make(list, type);
  track.members.insert(track.members.begin(), stored);
}

void list_model::drop_member(const std::string& list, const std::string& member) {
  model_track* track = find(list);
  if (track == nullptr) return;
  const auto found = std::find_if(track->members.begin(), track->members.end(),
                                  [&](const model_member& m) { return m.name == member; });
  if (found != track->members.end()) track->members.erase(found);
}

void list_model::make_limits(const std::string& list, std::uint32_t type, std::uint32_t up_limit,
                             std::uint32_t down_limit) {
  model_track& track = make(list, type);
  track.up_limit = up_limit;
  track.down_limit = down_limit;
}

void list_model::change_limits(const std::string& list, std::uint32_t type, std::uint32_t up_limit,
                               std::uint32_t down_limit) {
  const model_track* track = find(list);
  make_limits(list, track == nullptr ? type : track->type, up_limit, down_limit);
}

void list_model::set_delays(const std::string& name, std::uint32_t delay_up,
                            std::uint32_t delay_down) {
  const model_track* present = find(name);
  model_track& track = make(name, present == nullptr ? 6 : present->type);
  track.delay_up = delay_up;
  track.delay_down = delay_down;
}

void list_model::erase(const std::string& name) {
  model_track* track = find(name);
  if (track == nullptr) return;
  if (is_list(track->type) && track->source == up) {
    track->source = 0;
    set_state(name, 0);
  }
  std::erase_if(tracks_, [&](const model_track& t) { return t.name == name; });
  index_tracks();
}

void list_model::report(const std::string& name, std::uint32_t state) {
  model_track* track = find(name);
  if (track == nullptr || is_list(track->type) || track->source == state) return;
  track->source = state;
  set_state(name, state);
}

void list_model::set_state(const std::string& name, std::uint32_t state) {
  model_track& track = *find(name);
  const std::shared_ptr<model_delay> delay = track.delay;
  if (state == track.state && track.delay_up == 0 && track.delay_down == 0) {
    delay->running = false;  // of a delay that was taken away meanwhile
    std::erase(running_, delay);
    return;
  }
  const std::uint32_t seconds = state == up ? track.delay_up : track.delay_down;
  const bool keeps_running = seconds != 0 && delay->running && delay->pending == state;
  if (keeps_running) return;
  delay->running = false;
  std::erase(running_, delay);
  delay->pending = state;
  if (seconds == 0) {
    publish(name, state);
  } else if (state != track.state) {
    delay->running = true;
    delay->due = now_ + seconds * std::uint64_t{1000};
    delay->started = ++counter_;
    running_.push_back(delay);
  }
}

void list_model::publish(const std::string& name, std::uint32_t state) {
  static constexpr std::array<const char*, 3> words = {"Unknown", "Track_Up", "Track_Down"};
  if (model_track* track = find(name)) {
    if (state != track->state) changes_.push_back("track " + name + " state " + words[state]);
    track->state = state;
    ++track->publications;
  }
  request_calculation();
}

void list_model::request_calculation() {
  calculation_.running = true;
  calculation_.due = now_ + 20;
  calculation_.started = ++counter_;
}

void list_model::wait(std::uint64_t milliseconds) {
  const std::uint64_t end = now_ + milliseconds;
  for (;;) {
    const auto first =
        std::min_element(running_.begin(), running_.end(),
                         [](const auto& a, const auto& b) { return is_earlier(*a, *b); });
    const bool calculate_first =
        calculation_.running && (first == running_.end() || is_earlier(calculation_, **first));
    if (!calculate_first && first == running_.end()) break;
    const std::shared_ptr<model_delay> delay = calculate_first ? nullptr : *first;
    const std::uint64_t due = calculate_first ? calculation_.due : delay->due;
    if (due > end) break;
    now_ = due;
    if (calculate_first) {
      calculation_.running = false;
      calculate();
    } else {
      delay->running = false;
      running_.erase(first);
      publish(delay->track, delay->pending);
    }
  }
  now_ = end;
}

void list_model::calculate() {
  std::size_t lists = 0;
  for (model_track& track : tracks_) {
    track.waiting = is_list(track.type);
    lists += track.waiting ? 1 : 0;
  }
  for (std::size_t pass = 0; pass < lists; ++pass) {
    for (model_track& track : tracks_) {
      const std::uint32_t result = track.waiting ? result_of(track) : 0;
      if (result == 0) continue;
      track.waiting = false;
      if (result == track.source) continue;
      track.source = result;
      set_state(track.name, result);
    }
  }
}

std::uint32_t list_model::result_of(const model_track& list) const {
  if (list.members.empty()) return down;
  return is_boolean(list.type) ? boolean_result(list) : threshold_result(list);
}

std::uint32_t list_model::boolean_result(const model_track& list) const {
  const bool wants_all = list.type == 3;
  for (const model_member& member : list.members) {
    const model_track* track = find(member.name);
    if (track != nullptr && track->waiting) return 0;
    const bool member_up = track != nullptr && track->state == up;
    const bool counts = member.value == 0 ? member_up : !member_up;
    if (counts != wants_all) return wants_all ? down : up;
  }
  return wants_all ? up : down;
}

std::uint32_t list_model::threshold_result(const model_track& list) const {
  std::uint32_t sum = 0;
  for (const model_member& member : list.members) {
    const model_track* track = find(member.name);
    if (track == nullptr) continue;
    if (track->waiting) return 0;
    if (track->source == up) sum += member.value;
  }
  if (list.type == 8) {
    sum = static_cast<std::uint32_t>(sum * std::uint64_t{100} / list.members.size());
  }
  return between_limits(list, sum) ? up : down;
}

bool list_model::between_limits(const model_track& list, std::uint32_t value) const {
  return list.down_limit <= value && value <= list.up_limit;
}

}  // namespace ot::test
