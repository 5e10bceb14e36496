// "show". What scripts read is the service's own show front-end, called in this process, so that
// both print the same to the letter, and JSON. On a terminal people get the same in the order of
// names, in lines that fit.
#include <array>
#include <iostream>

#include "platform/service.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/configuration.h"
#include "tools/trackctl/json_text.h"
#include "tools/trackctl/kinds/kinds.h"
#include "tools/trackctl/names.h"
#include "tools/trackctl/overview.h"
#include "tools/trackctl/terminal.h"
#include "tools/trackctl/track.h"
#include "tools/trackctl/track_line.h"

namespace ot::trackctl {
namespace {

using json = nlohmann::ordered_json;

constexpr const char* all_tracks = "all-tracks";

// As `object_tracking show track KEY [all]`.
void show_text(std::string key, bool detail) {
  std::string program = "object_tracking";
  std::string show = "show";
  std::string track = "track";
  std::string all = "all";
  std::array<char*, 6> words{
      program.data(), show.data(), track.data(), key.data(), detail ? all.data() : nullptr,
      nullptr};
  (void)ot::main(detail ? 5 : 4, words.data());
}

// The tracks as JSON, or the one of that name; `live`: with what the service has besides the
// records. Throws.
std::vector<json> read_shown(const std::string& track, bool live) {
  const auto extras = read_track_extras();
  std::vector<json> all;
  const auto keep = [&](const track_info__& record) {
    const auto found = extras.find(record.TrackeName.view());
    json shown = track_to_json(record, found == extras.end() ? track_extras{} : found->second);
    const track_kind* const kind = find_track_kind(record.Type);
    if (live && kind != nullptr && kind->live != nullptr) {
      shown["object"].update(kind->live(std::string(record.TrackeName.view())));
    }
    flag_missing_members(shown, [&extras](std::string_view name) {
      const auto member = extras.find(name);
      return member != extras.end() && member->second.configured;
    });
    all.push_back(std::move(shown));
  };
  if (track.empty()) {
    read_track_records(keep);
  } else if (!read_track_record(track, keep)) {
    throw failure(exit_refused, "track \"" + track +
                                    "\" is configured, but has neither a type nor delays yet, so "
                                    "there is nothing to show; `trackctl set " +
                                    track + " KIND ...` gives it a type");
  }
  return all;
}

void show_json(const std::string& track) {
  const std::vector<json> shown = read_shown(track, true);
  const json printed = track.empty() ? json(shown) : shown.at(0);
  std::cout << json_text(printed);
}

// What is configured in the words of `set`.
std::string words_of(const track_items& items, const json& track) {
  const std::string words = describe_object(items);
  const std::string type = track["type"].get<std::string>();
  return !words.empty() ? words : type == "none" ? "nothing" : type;
}

void show_people(const std::string& track, bool detail, const terminal& output) {
  const configured_tracks configured = read_tracks();
  std::vector<seen_track> seen;
  for (json& shown : read_shown(track, detail)) {
    const auto items = configured.find(shown["name"].get_ref<const std::string&>());
    const std::string words =
        words_of(items == configured.end() ? track_items{} : items->second, shown);
    seen.push_back({std::move(shown), words});
  }
  const moment now = std::chrono::system_clock::now();
  std::cout << (detail ? details_text(std::move(seen), output, now)
                       : overview_text(std::move(seen), output, now));
}

}  // namespace

int run_show(const arguments& args) {
  command_line app{
      "Show one track, or all of them: a line each, or in detail. On a terminal lines are in the "
      "order of names and fit it; elsewhere they are those of `object_tracking show track`.",
      "trackctl show"};
  app.footer(
      "Examples: trackctl show\n          trackctl show uplink --detail\n"
      "          trackctl show --json | jq '.[] | select(.state != \"up\") | .name'");
  std::string track;
  bool detail = false;
  bool as_json = false;
  app.add_option("NAME", track, "the track; none: all of them");
  app.add_flag("--detail", detail, "all there is to know, in place of one line");
  app.add_flag("--json", as_json,
               "for programs, always with all detail: an object, or an array of "
               "them when NAME is not given");
  parse_arguments(app, args);

  if (app.count("NAME") > 0) {
    check_track_name(track);
    (void)read_existing_track(track);
  } else {
    const ledger_connection reachable("/");
  }
  if (const terminal output = output_terminal(); as_json) {
    show_json(track);
  } else if (output.present) {
    show_people(track, detail, output);
  } else {
    show_text(track.empty() ? all_tracks : track, detail);
  }
  return exit_done;
}

}  // namespace ot::trackctl
