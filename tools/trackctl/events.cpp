// "events": follows published events until it is stopped, or until the service goes away. The time
// of a line is the moment at which trackctl received the event; the event itself carries none.
#include "tools/trackctl/events.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <nlohmann/json.hpp>

#include "platform/ledger_status.h"
#include "platform/linux/short_slices.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/names.h"

namespace ot::trackctl {
namespace {

struct local_time {
  std::tm calendar{};
  int milliseconds = 0;
};

local_time to_local(std::chrono::system_clock::time_point when) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(when);
  const std::time_t whole = std::chrono::system_clock::to_time_t(seconds);
  local_time result;
  (void)localtime_r(&whole, &result.calendar);
  result.milliseconds = static_cast<int>(
      std::chrono::duration_cast<std::chrono::milliseconds>(when - seconds).count());
  return result;
}

std::string format_time(const local_time& time, const char* format) {
  std::array<char, 64> buffer{};
  return {buffer.data(), std::strftime(buffer.data(), buffer.size(), format, &time.calendar)};
}

std::string format_milliseconds(const local_time& time) {
  std::array<char, 16> buffer{};
  (void)std::snprintf(buffer.data(), buffer.size(), ".%03d", time.milliseconds);
  return buffer.data();
}

// "+0130" as "+01:30".
std::string format_zone(const local_time& time) {
  std::string zone = format_time(time, "%z");
  return zone.insert(3, ":");
}

}  // namespace

const char* event_state_word(std::uint32_t state) noexcept {
  constexpr std::array words{"unknown", "up", "down"};
  return state < words.size() ? words[state] : words[0];
}

std::string event_text_line(const evdl_track_event& event,
                            std::chrono::system_clock::time_point when) {
  const local_time time = to_local(when);
  return format_time(time, "%Y-%m-%d %H:%M:%S") + format_milliseconds(time) + " " + event.track +
         " " + event_state_word(event.state);
}

std::string event_json_line(const evdl_track_event& event,
                            std::chrono::system_clock::time_point when) {
  const local_time time = to_local(when);
  const nlohmann::ordered_json line{{"time", format_time(time, "%Y-%m-%dT%H:%M:%S") +
                                                 format_milliseconds(time) + format_zone(time)},
                                    {"track", event.track},
                                    {"state", event_state_word(event.state)}};
  return line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

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

constexpr std::size_t longest_name_in_events = 31;

// The publisher matches names exactly, so all tracks in one state cannot be asked for: without
// names everything comes and the state is looked at here.
std::vector<evdl_filter> filters_of(const events_options& options) {
  std::vector<evdl_filter> filters;
  for (const std::string& track : options.tracks) {
    check_track_name(track);
    if (track.size() > longest_name_in_events) {
      throw failure(exit_usage, "events: track name \"" + track + "\" has " +
                                    std::to_string(track.size()) +
                                    " characters; events carry at most 31");
    }
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
  ask_for_short_slices(500);
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
