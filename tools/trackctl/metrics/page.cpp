#include "tools/trackctl/metrics/page.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <iostream>
#include <set>

#include "tools/json.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/kinds/kinds.h"
#include "tools/trackctl/policy_list.h"
#include "tools/trackctl/track.h"

namespace ot::trackctl {
namespace {

using enum metric_kind;

constexpr metric service_up{"object_tracking_service_up", gauge, "Whether the service is running."};
constexpr metric service_start{"object_tracking_service_start_time_seconds", gauge,
                               "When the service started, since the epoch.", "seconds"};
constexpr metric track_states{"object_tracking_track_state", gauge,
                              "1 for the state that the track has, 0 for the others."};
constexpr metric track_changes{"object_tracking_track_changes", counter,
                               "Published states since the service started."};
constexpr metric track_since_change{"object_tracking_track_since_change_seconds", gauge,
                                    "Time since the last published state, if there was one.",
                                    "seconds"};
constexpr metric track_delay{"object_tracking_track_delay_remaining_seconds", gauge,
                             "Until the waiting state is published, of tracks whose delay runs.",
                             "seconds"};
constexpr metric engine_connected{"object_tracking_engine_connected", gauge,
                                  "Whether the service is connected to what its tracks need."};
constexpr metric engine_pending{"object_tracking_engine_pending", gauge,
                                "How much waits for that."};
constexpr metric engine_discarded{"object_tracking_engine_discarded_packets", counter,
                                  "Packets that were not understood."};
constexpr metric loop_longest{"object_tracking_loop_longest_turn_seconds", gauge,
                              "The longest time since the start that one event kept from all "
                              "others.",
                              "seconds"};
constexpr metric log_dropped{"object_tracking_log_dropped_lines", counter,
                             "Lines of the service's log that nobody read in time."};
constexpr metric policies_up{"object_tracking_trackpolicy_up", gauge,
                             "Whether trackpolicy is running."};
constexpr metric policy_problem{"object_tracking_policy_problem", gauge,
                                "Whether the policy has a problem that is not settled."};

constexpr metric policy_penalty{"object_tracking_policy_penalty", gauge,
                                "Of the track's flaps, for policies with damping."};
constexpr metric policy_suppressed{"object_tracking_policy_suppressed", gauge,
                                   "Whether the policy takes no notice of up for its penalty."};

// What is a counter of each policy, and the member that tells it.
struct policy_counter {
  const char* member;
  metric of;
};
constexpr std::array policy_counters{
    policy_counter{"runs", {"object_tracking_policy_runs", counter, "What the policy has done."}},
    policy_counter{"failures",
                   {"object_tracking_policy_failures", counter, "What of it has failed."}},
    policy_counter{"dropped",
                   {"object_tracking_policy_dropped_states", counter,
                    "States that were too many to wait for the policy's command."}}};

void measure_tracks(metrics_text& into) {
  const std::set<std::string, std::less<>> published = read_published_tracks();
  const double now =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  // One that is made anew while they are read may come twice.
  std::set<std::string, std::less<>> measured;
  read_named_records([&](std::string_view name, const track_info__& record) {
    if (measured.emplace(name).second) {
      measure_track(name, record, published.contains(name), now, into);
    }
  });
  for (const track_kind& kind : track_kinds()) {
    if (kind.measure_all != nullptr) {
      kind.measure_all(into);
    }
  }
}

void measure_service(metrics_text& into) {
  into.add(service_up, {}, 1);
  measure_loop(read_loop_state(), into);
  for (const engine_state& each : read_engine_states()) {
    measure_engine(each, into);
  }
  measure_tracks(into);
}

void measure_policies(metrics_text& into) {
  nlohmann::json policies;
  try {
    policies = nlohmann::json::parse(read_policy_list());
  } catch (const failure& reason) {
    into.add(policies_up, {}, 0);
    if (reason.status != exit_no_service) {
      std::cerr << "trackctl: " << reason.what() << '\n';
    }
    return;
  }
  into.add(policies_up, {}, 1);
  for (const nlohmann::json& each : policies) {
    measure_policy(each, into);
  }
}

}  // namespace

void measure_track(std::string_view name, const track_info__& record, bool published, double now,
                   metrics_text& into) {
  const track_kind* const kind = find_track_kind(record.Type);
  const char* const type = kind == nullptr ? "none" : kind->word;
  const std::string_view state = state_word(record, published);
  for (const char* const each : {"up", "down", "unknown"}) {
    into.add(track_states, {{"track", name}, {"type", type}, {"state", each}},
             state == each ? 1 : 0);
  }
  into.add(track_changes, {{"track", name}}, record.StateChangeCounter);
  if (published) {
    into.add(track_since_change, {{"track", name}},
             std::max(now - static_cast<double>(record.SecondsLastChange), 0.0));
  }
  if (record.Delayed != nullptr) {
    into.add(track_delay, {{"track", name}, {"state", record.Delayed->TrackState ? "up" : "down"}},
             record.Delayed->TimeRemaining);
  }
  if (kind != nullptr && kind->measure != nullptr) {
    kind->measure(name, record.TrackTypeInfo, into);
  }
}

void measure_engine(const engine_state& engine, metrics_text& into) {
  into.add(engine_connected, {{"service", engine.service}}, engine.connected ? 1 : 0);
  into.add(engine_pending, {{"service", engine.service}}, engine.pending);
  const auto kinds = track_kinds();
  const bool receives = std::any_of(kinds.begin(), kinds.end(), [&](const track_kind& kind) {
    return kind.service.word == engine.service && kind.service.discards != nullptr;
  });
  if (receives) {
    into.add(engine_discarded, {{"service", engine.service}},
             static_cast<double>(engine.discarded));
  }
}

void measure_loop(const loop_state& loop, metrics_text& into) {
  into.add(service_start, {}, static_cast<double>(loop.since));
  into.add(loop_longest, {}, loop.longest_us / 1e6);
  into.add(log_dropped, {}, static_cast<double>(loop.log_dropped));
}

void measure_policy(const nlohmann::json& policy, metrics_text& into) {
  const auto text = [&policy](const char* member) -> const std::string& {
    return policy.at(member).get_ref<const std::string&>();
  };
  const std::string& name = text("policy");
  for (const policy_counter& each : policy_counters) {
    into.add(each.of, {{"policy", name}, {"kind", text("kind")}, {"track", text("track")}},
             policy.at(each.member).get<double>());
  }
  into.add(policy_problem, {{"policy", name}}, text("problem").empty() ? 0 : 1);
  if (const auto penalty = policy.find("penalty"); penalty != policy.end() && !penalty->is_null()) {
    into.add(policy_penalty, {{"policy", name}}, penalty->get<double>());
    into.add(policy_suppressed, {{"policy", name}}, policy.at("suppressed_ms") == 0 ? 0 : 1);
  }
}

metrics_page read_metrics(text_form form) {
  metrics_text all(form);
  bool service = true;
  try {
    measure_service(all);
  } catch (const failure& reason) {
    if (reason.status != exit_no_service) {
      throw;
    }
    all = metrics_text(form);
    all.add(service_up, {}, 0);
    service = false;
  }
  measure_policies(all);
  return {all.text(), service};
}

}  // namespace ot::trackctl
