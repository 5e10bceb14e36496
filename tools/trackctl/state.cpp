// "state": a word and an exit status for scripts, which may wait until it is what they need. They
// wait for events, so they go on at once.
#include "tools/trackctl/state.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <optional>

#include "platform/event_subscriber.h"
#include "platform/ledger_status.h"
#include "tools/json.h"
#include "tools/trackctl/configuration.h"
#include "tools/trackctl/events.h"
#include "tools/trackctl/json_text.h"
#include "tools/trackctl/names.h"
#include "tools/trackctl/times.h"
#include "tools/trackctl/track.h"

namespace ot::trackctl {
namespace {

using clock = std::chrono::steady_clock;

bool lacks_result(const std::string& track) {
  bool lacks = false;
  (void)read_track_record(track,
                          [&](const track_info__& record) { lacks = awaits_result(record); });
  return lacks;
}

struct state_options {
  std::vector<std::string> tracks;
  std::string wanted;  // empty: it is not waited
  std::optional<std::chrono::seconds> timeout;
  bool json = false;
};

using states = std::vector<std::string>;

states read_states(const std::vector<std::string>& tracks) {
  states all;
  for (const std::string& track : tracks) {
    (void)read_existing_track(track);
    all.emplace_back(state_word(read_state(track)));
  }
  return all;
}

// Milliseconds to wait, -1 for ever.
int remaining(const std::optional<clock::time_point>& end) {
  if (!end) {
    return -1;
  }
  const auto left = std::chrono::ceil<milliseconds>(*end - clock::now());
  return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 3'600'000));
}

// A service that hangs is asked for seconds, and does not make a script wait for longer than it
// wanted.
class limit {
 public:
  explicit limit(std::chrono::seconds timeout) {
    ::signal(SIGALRM, [](int) {
      constexpr std::string_view text = "trackctl: the service does not answer\n";
      (void)!write(STDERR_FILENO, text.data(), text.size());
      _exit(exit_timeout);
    });
    alarm(static_cast<unsigned>(timeout.count()) + grace_s);
  }
  ~limit() { alarm(0); }
  limit(const limit&) = delete;
  limit& operator=(const limit&) = delete;

 private:
  static constexpr unsigned grace_s = 1;  // for the answer of one that is slow
};

// Follows the tracks first and looks at them then, so that no change is missed. The states at the
// end, wanted or not.
states wait_for_states(const state_options& options) {
  std::optional<clock::time_point> end;
  std::optional<limit> hung;
  if (options.timeout) {
    end = clock::now() + *options.timeout;
    hung.emplace(*options.timeout);
  }
  std::vector<evdl_filter> filters;
  for (const std::string& track : options.tracks) {
    (void)read_existing_track(track);
    filters.push_back(filter_for(track));
  }
  const event_subscription events(filters);
  for (;;) {
    states present = read_states(options.tracks);
    const bool reached = std::all_of(present.begin(), present.end(), [&](const std::string& state) {
      return state == options.wanted;
    });
    const int wait = remaining(end);
    if (reached || wait == 0) {
      return present;
    }
    events.receive(wait, [](const evdl_track_event&) {});
  }
}

void print(const state_options& options, const states& present) {
  using json = nlohmann::ordered_json;
  json all = json::array();
  for (std::size_t index = 0; index < present.size(); ++index) {
    const std::string& track = options.tracks[index];
    all.push_back({{"name", track}, {"state", present[index]}});
    if (!options.json) {
      std::cout << (present.size() == 1 ? "" : track + ' ') << present[index] << '\n';
    }
  }
  if (options.json) {
    std::cout << json_text(present.size() == 1 ? all.at(0) : all);
  }
}

exit_status status_of(const states& present) {
  const auto any = [&present](const char* state) {
    return std::find(present.begin(), present.end(), state) != present.end();
  };
  return any("down") ? exit_down : any("unknown") ? exit_unknown : exit_done;
}

exit_status waited(const state_options& options, const states& present) {
  std::string others;
  for (std::size_t index = 0; index < present.size(); ++index) {
    if (present[index] != options.wanted) {
      others += (others.empty() ? "" : ", ") + options.tracks[index] + " is " + present[index];
    }
  }
  if (others.empty()) {
    return exit_done;
  }
  std::cerr << "trackctl: not all " << options.wanted << " within "
            << duration_text(*options.timeout) << ": " << others << '\n';
  return exit_timeout;
}

state_options parse_state(const arguments& args) {
  command_line app{
      "Print the published state of tracks: up, down or unknown (not known yet, or a probe without "
      "a result); of several with their names. With --wait, once all are as wanted.\n"
      "Exit status: 0 all up, 10 one is down, 11 none is down and one unknown, 1 when there is no "
      "such track; with --wait 0 as wanted, 12 not within the time.",
      "trackctl state"};
  app.footer(
      "Examples: if trackctl state uplink >/dev/null; then echo online; fi\n"
      "          trackctl state uplink backup --wait up --timeout 30s");
  state_options options;
  std::string timeout;
  app.add_option("NAME", options.tracks, "the tracks").required();
  app.add_option("--wait", options.wanted, "wait until all are up, or all are down")
      .one_of({"up", "down"});
  app.add_option("--timeout", timeout,
                 "wait no longer: seconds, or such as 2m; left out: for ever");
  app.add_flag("--json", options.json, "an object with name and state; of several an array");
  parse_arguments(app, args);
  if (!timeout.empty()) {
    options.timeout =
        std::chrono::seconds(parse_seconds("--timeout", timeout, {.least = 0, .most = 31'536'000}));
  }
  if (options.timeout && options.wanted.empty()) {
    throw failure(exit_usage, "state: --timeout is for --wait; give --wait up or --wait down too");
  }
  std::for_each(options.tracks.begin(), options.tracks.end(), check_track_name);
  return options;
}

}  // namespace

// The published state's item: 1 up, 2 not up; none before the first publication.
exit_status read_state(const std::string& track) {
  const ledger_connection connection(states_root);
  ledger_value value;
  const int code = ledger_item_get(connection.get(), track.c_str(), &value);
  if (code == ledger_no_data) {
    return exit_unknown;
  }
  check_code("reading the state of track \"" + track + "\"", code);
  if (value.as_u32() == 1) {
    return exit_done;
  }
  return lacks_result(track) ? exit_unknown : exit_down;
}

const char* state_word(exit_status state) {
  switch (state) {
    case exit_done:
      return "up";
    case exit_down:
      return "down";
    default:
      return "unknown";
  }
}

int run_state(const arguments& args) {
  const state_options options = parse_state(args);
  if (options.wanted.empty()) {
    const states present = read_states(options.tracks);
    print(options, present);
    return status_of(present);
  }
  const states present = wait_for_states(options);
  print(options, present);
  return waited(options, present);
}

}  // namespace ot::trackctl
