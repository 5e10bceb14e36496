// "events": follows published events until it is stopped, or until the service goes away. The time
// of a line is the moment at which trackctl received the event; the event itself carries none.
#include "tools/trackctl/events.h"

#include <array>
#include <iostream>

#include "platform/ledger_status.h"
#include "platform/linux/short_slices.h"
#include "tools/json.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/configuration.h"
#include "tools/trackctl/json_text.h"
#include "tools/trackctl/names.h"

namespace ot::trackctl {

const char* event_state_word(std::uint32_t state) noexcept {
  constexpr std::array words{"unknown", "up", "down"};
  return state < words.size() ? words[state] : words[0];
}

std::string event_text_line(const evdl_track_event& event, moment when) {
  return text_time(when) + " " + event.track + " " + event_state_word(event.state);
}

std::string event_json_line(const evdl_track_event& event, moment when) {
  const nlohmann::ordered_json line{
      {"time", json_time(when)}, {"track", event.track}, {"state", event_state_word(event.state)}};
  return json_line(line);
}

evdl_filter filter_for(const std::string& track) {
  constexpr std::size_t longest_name_in_events = 31;
  check_track_name(track);
  if (track.size() > longest_name_in_events) {
    throw failure(exit_usage, "events: track name \"" + track + "\" has " +
                                  std::to_string(track.size()) +
                                  " characters; events carry at most 31");
  }
  return {.track = track};
}

event_subscription::event_subscription(const std::vector<evdl_filter>& filters, begin how) {
  const auto subscribe = how == begin::waits ? evdl_subscribe : evdl_subscribe_begin;
  check_code("following events", subscribe(filters, &subscriber_));
}

event_subscription::~event_subscription() {
  evdl_unsubscribe(subscriber_);
}

void event_subscription::receive(
    int timeout_ms, const std::function<void(const evdl_track_event&)>& on_event) const {
  const int code = evdl_receive(subscriber_, timeout_ms, on_event);
  if (code == ledger_unreachable) {
    throw failure(exit_no_service,
                  "following events: the service has gone, or has cut off a reader that was too "
                  "slow; run the command again");
  }
  check_code("following events", code);
}

bool event_subscription::answered() const {
  const int code = evdl_subscribe_answer(subscriber_, 0);
  if (code != ledger_no_answer) {
    check_code("following events", code);
  }
  return code == status_ok;
}

int event_subscription::descriptor() const noexcept {
  return evdl_subscriber_fd(subscriber_);
}

namespace {

struct events_options {
  std::vector<std::string> tracks;
  std::string state;  // empty: any
  bool json = false;
};

bool is_wanted_state(const events_options& options, std::uint32_t state) {
  return options.state.empty() || options.state == event_state_word(state);
}

// The publisher matches names exactly, so all tracks in one state cannot be asked for: without
// names everything comes and the state is looked at here.
std::vector<evdl_filter> filters_of(const events_options& options) {
  std::vector<evdl_filter> filters;
  for (const std::string& track : options.tracks) {
    filters.push_back(filter_for(track));
    filters.back().any_state = options.state.empty();
    filters.back().state = options.state == "up" ? 1U : 2U;
  }
  return filters;
}

void print_event(const events_options& options, const evdl_track_event& event) {
  if (!is_wanted_state(options, event.state)) {
    return;
  }
  const auto now = std::chrono::system_clock::now();
  std::cout << (options.json ? event_json_line(event, now) : event_text_line(event, now))
            << std::endl;
  if (!std::cout) {
    throw failure(exit_refused, "following events: standard output cannot be written");
  }
}

// A name that is mistyped would be followed for ever.
std::vector<std::string> missing_tracks(const events_options& options) {
  std::vector<std::string> missing;
  for (const std::string& track : options.tracks) {
    if (read_track(track).empty()) {
      missing.push_back(track);
    }
  }
  return missing;
}

[[noreturn]] void follow(const events_options& options) {
  const event_subscription events(filters_of(options));
  const std::vector<std::string> missing = missing_tracks(options);
  ask_for_short_slices(500);
  std::cerr << "trackctl: following events\n";
  for (const std::string& track : missing) {
    std::cerr << "trackctl: note: there is no track \"" << track
              << "\" yet; its changes come once there is\n";
  }
  for (;;) {
    events.receive(-1, [&options](const evdl_track_event& event) { print_event(options, event); });
  }
}

}  // namespace

int run_events(const arguments& args) {
  command_line app{
      "Follow changes of state, one line each, until interrupted. Standard error says when "
      "following has begun; from then on nothing is missed.",
      "trackctl events"};
  app.footer("Example: trackctl events --track uplink --state down --json");
  events_options options;
  app.add_option("--track", options.tracks, "only this track; may be given several times")
      .one_value_each();
  app.add_option("--state", options.state, "only changes to up, or to down").one_of({"up", "down"});
  app.add_flag("--json", options.json, "one JSON object a line: time, track, state");
  parse_arguments(app, args);
  follow(options);
}

}  // namespace ot::trackctl
