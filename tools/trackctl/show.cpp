// "show" and "state". The text of "show" is the service's own show front-end, called in this
// process, so that both print the same to the letter; JSON is made here from the same records.
// "state" is one word and one exit status, for scripts.
#include <array>
#include <iostream>

#include "platform/ledger_status.h"
#include "platform/service.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/configuration.h"
#include "tools/trackctl/kinds/kinds.h"
#include "tools/trackctl/names.h"
#include "tools/trackctl/track.h"

namespace ot::trackctl {
namespace {

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

void show_json(const std::string& track) {
  const auto extras = read_track_extras();
  const auto to_json = [&extras](const track_info__& record) {
    const auto found = extras.find(record.TrackeName.view());
    auto shown = track_to_json(record, found == extras.end() ? track_extras{} : found->second);
    const track_kind* const kind = find_track_kind(record.Type);
    if (kind != nullptr && kind->live != nullptr) {
      shown["object"].update(kind->live(std::string(record.TrackeName.view())));
    }
    flag_missing_members(shown, [&extras](std::string_view name) {
      const auto member = extras.find(name);
      return member != extras.end() && member->second.configured;
    });
    return shown;
  };
  nlohmann::ordered_json all = nlohmann::ordered_json::array();
  const auto keep = [&](const track_info__& record) { all.push_back(to_json(record)); };
  if (track.empty()) {
    read_track_records(keep);
  } else if (read_track_record(track, keep)) {
    all = all.at(0);
  } else {
    throw failure(exit_refused, "track \"" + track +
                                    "\" is configured, but has neither a type nor "
                                    "delays yet, so there is nothing to show");
  }
  std::cout << all.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

bool lacks_result(const std::string& track) {
  bool lacks = false;
  (void)read_track_record(track,
                          [&](const track_info__& record) { lacks = awaits_result(record); });
  return lacks;
}

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

}  // namespace

int run_show(const arguments& args) {
  CLI::App app{"Show one track, or all of them: a line each, or in detail.", "trackctl show"};
  app.footer(
      "Examples: trackctl show\n          trackctl show uplink --detail\n"
      "          trackctl show --json | jq '.[] | select(.state != \"up\") | .name'");
  std::string track;
  bool detail = false;
  bool json = false;
  app.add_option("NAME", track, "the track; none: all of them");
  app.add_flag("--detail", detail, "all there is to know, in place of one line");
  app.add_flag("--json", json,
               "for programs, always with all detail: an object, or an array of "
               "them when NAME is not given");
  parse_arguments(app, args);

  if (app.count("NAME") > 0) {
    check_track_name(track);
    (void)read_existing_track(track);
  } else {
    const ledger_connection reachable("/");
  }
  if (json) {
    show_json(track);
  } else {
    show_text(track.empty() ? all_tracks : track, detail);
  }
  return exit_done;
}

int run_state(const arguments& args) {
  CLI::App app{
      "Print the published state of a track: up, down or unknown (not known yet, or a\n"
      "probe without a result).\n"
      "Exit status: 0 up, 10 down, 11 unknown, 1 when there is no such track.",
      "trackctl state"};
  app.footer("Example: if trackctl state uplink >/dev/null; then echo online; fi");
  std::string track;
  app.add_option("NAME", track, "the track")->required();
  parse_arguments(app, args);

  check_track_name(track);
  (void)read_existing_track(track);
  const exit_status state = read_state(track);
  std::cout << state_word(state) << '\n';
  return state;
}

}  // namespace ot::trackctl
