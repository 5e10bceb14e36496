// "events": follows published events until it is stopped, or until the service goes away.
#include <array>
#include <chrono>
#include <iostream>

#include "platform/status.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/event_line.h"
#include "tools/trackctl/failure.h"
#include "tools/trackctl/names.h"

namespace ot::trackctl {
namespace {

struct events_options {
  std::vector<std::string> tracks;
  std::string state;  // empty: any
  bool json = false;
};

// Ends the subscription with the command.
class subscription {
 public:
  explicit subscription(const std::vector<evdl_filter>& filters) {
    check_code("following events", evdl_subscribe(filters, &subscriber_));
  }
  ~subscription() { evdl_unsubscribe(subscriber_); }
  subscription(const subscription&) = delete;
  subscription& operator=(const subscription&) = delete;

  [[nodiscard]] evdl_subscriber* get() const noexcept { return subscriber_; }

 private:
  evdl_subscriber* subscriber_ = nullptr;
};

bool is_wanted_state(const events_options& options, std::uint32_t state) {
  return options.state.empty() || options.state == event_state_word(state);
}

// The publisher matches names exactly, so all tracks in one state cannot be asked for: without
// names everything comes and the state is looked at here.
std::vector<evdl_filter> filters_of(const events_options& options) {
  std::vector<evdl_filter> filters;
  for (const std::string& track : options.tracks) {
    check_track_name(track);
    filters.push_back({track, options.state.empty(), options.state == "up" ? 1U : 2U});
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

[[noreturn]] void follow(const events_options& options) {
  const subscription events(filters_of(options));
  std::cerr << "trackctl: following events\n";
  int code = status_ok;
  while (code == status_ok) {
    code = evdl_receive(events.get(), -1,
                        [&options](const evdl_track_event& event) { print_event(options, event); });
  }
  if (code == ledger_unreachable) {
    throw failure(exit_no_service,
                  "following events: the service has gone, or has cut off a reader that was too "
                  "slow; run the command again");
  }
  fail_with_code("following events", code);
}

}  // namespace

int run_events(const arguments& args) {
  CLI::App app{
      "Follow changes of state, one line each, until interrupted. Standard error says when "
      "following has begun; from then on nothing is missed.",
      "trackctl events"};
  app.footer("Example: trackctl events --track uplink --state down --json");
  events_options options;
  app.add_option("--track", options.tracks, "only this track; may be given several times")
      ->take_all()
      ->allow_extra_args(false);
  app.add_option("--state", options.state, "only changes to up, or to down")
      ->check(CLI::IsMember({"up", "down"}));
  app.add_flag("--json", options.json, "one JSON object a line: time, track, state");
  parse_arguments(app, args);
  follow(options);
}

}  // namespace ot::trackctl
