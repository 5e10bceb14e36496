// "history": what the service has kept, as text for people and as JSON.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <iostream>

#include "tools/trackctl/columns.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/configuration.h"
#include "tools/trackctl/history.h"
#include "tools/trackctl/json_text.h"
#include "tools/trackctl/names.h"
#include "tools/trackctl/state.h"
#include "tools/trackctl/track.h"

namespace ot::trackctl {
namespace {

double percent_up(const track_summary& summary) {
  const auto whole = summary.end - summary.begin;
  return whole.count() <= 0
             ? 0.0
             : 100.0 * static_cast<double>(summary.up.count()) / static_cast<double>(whole.count());
}

}  // namespace

std::string history_text(const kept_history& shown) {
  std::size_t name_width = 5;
  for (const past_change& change : shown.changes) {
    name_width = std::max(name_width, columns_of(change.track));
  }
  constexpr std::size_t time_width = 23;
  constexpr std::size_t change_width = 15;
  constexpr std::size_t cause_width = 13;
  std::string text = "The service keeps changes since " + text_time(shown.since) +
                     (shown.complete ? ", when it started.\n" : "; the oldest are forgotten.\n");
  if (shown.changes.empty()) {
    return text + "Nothing has changed in this time.\n";
  }
  text += table_cell("Time", time_width) + table_cell("Track", name_width) +
          table_cell("Change", change_width) + table_cell("Cause", cause_width) +
          "State before lasted\n";
  for (const past_change& change : shown.changes) {
    text += table_cell(text_time(change.when), time_width) + table_cell(change.track, name_width) +
            table_cell(change.from + " -> " + change.to, change_width) +
            table_cell(change.cause, cause_width) +
            (change.lasted ? duration_text(*change.lasted) : "-") + '\n';
  }
  return text;
}

std::string summary_text(const track_summary& summary) {
  std::array<char, 16> percent{};
  (void)std::snprintf(percent.data(), percent.size(), "%.1f %%", percent_up(summary));
  const auto whole = std::chrono::duration_cast<milliseconds>(summary.end - summary.begin);
  return summary.track + " is " + summary.state + "; it left up " +
         (summary.flaps == 1 ? "once" : std::to_string(summary.flaps) + " times") + " and was up " +
         percent.data() + " of the " + duration_text(whole) + " since " + text_time(summary.begin) +
         (summary.state == "gone" ? ", until " + text_time(summary.end) : "") + ".\n";
}

nlohmann::ordered_json history_json(const kept_history& shown,
                                    const std::optional<track_summary>& summary) {
  using json = nlohmann::ordered_json;
  json changes = json::array();
  for (const past_change& change : shown.changes) {
    changes.push_back({{"time", json_time(change.when)},
                       {"track", change.track},
                       {"from", change.from},
                       {"to", change.to},
                       {"cause", change.cause},
                       {"lasted_ms", change.lasted ? json(change.lasted->count()) : json()}});
  }
  json all{{"since", json_time(shown.since)},
           {"complete", shown.complete},
           {"changes", std::move(changes)}};
  if (summary) {
    all["summary"] = {{"track", summary->track},
                      {"state", summary->state},
                      {"since", json_time(summary->begin)},
                      {"until", json_time(summary->end)},
                      {"flaps", summary->flaps},
                      {"up_ms", std::chrono::duration_cast<milliseconds>(summary->up).count()},
                      {"up_percent", std::round(percent_up(*summary) * 1000) / 1000}};
  }
  return all;
}

namespace {

// One that is configured no more has a past, but no state.
std::string present_state(const kept_history& history, const std::string& track) {
  if (!chosen(history, track, moment::min()).changes.empty() && read_track(track).empty()) {
    return "gone";
  }
  (void)read_existing_track(track);
  return state_word(read_state(track));
}

// A track that is younger than the history and has not changed was made when its record says, in
// whole seconds.
moment first_known(const std::string& track) {
  moment made = moment::min();
  (void)read_track_record(track, [&made](const track_info__& record) {
    made = from_epoch(std::chrono::seconds(record.SecondsLastChange));
  });
  return made;
}

void print(const kept_history& shown, const std::optional<track_summary>& summary, bool json) {
  if (json) {
    std::cout << json_text(history_json(shown, summary));
    return;
  }
  std::cout << history_text(shown) << (summary ? summary_text(*summary) : "");
}

}  // namespace

int run_history(const arguments& args) {
  command_line app{
      "Show what changed: time, track, from what to what, why, and how long the state before had "
      "lasted; for one track also how often it left up, and its share of time up. The service "
      "keeps the last 4096 changes since it started.\n"
      "Causes: object (what the track follows), delay (it has run out), list (a member changed), "
      "configuration, restart (found so when the service started).",
      "trackctl history"};
  app.footer(
      "Examples: trackctl history uplink --since 1h\n"
      "          trackctl history --since \"2026-11-22 12:30\" --json");
  std::string track;
  std::string since_text;
  bool json = false;
  app.add_option("NAME", track, "the track; none: all of them");
  app.add_option("--since", since_text,
                 "not what is older: how long ago (30m, 1h30m, 2d), or a time");
  app.add_flag("--json", json, "for programs: an object; times in RFC 3339");
  parse_arguments(app, args);

  const moment now = std::chrono::system_clock::now();
  const moment since = since_text.empty() ? moment::min() : parse_since("--since", since_text, now);
  if (app.count("NAME") > 0) {
    check_track_name(track);
  }
  const kept_history history = read_history();
  std::optional<track_summary> summary;
  if (!track.empty()) {
    const std::string state = present_state(history, track);
    const bool unchanged = chosen(history, track, moment::min()).changes.empty();
    const moment from = unchanged ? std::max(since, first_known(track)) : since;
    summary = summary_of(history, track, state, from, now);
  }
  print(chosen(history, track, since), summary, json);
  return exit_done;
}

}  // namespace ot::trackctl
