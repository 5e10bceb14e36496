// "state": one word and one exit status, for scripts.
#include <iostream>

#include "platform/status.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/config_session.h"
#include "tools/trackctl/failure.h"
#include "tools/trackctl/names.h"
#include "tools/trackctl/track_reader.h"

namespace ot::trackctl {
namespace {

constexpr const char* states_root = "/oper/gl/object-tracking/";

bool lacks_probe_result(const std::string& track) {
  bool lacks = false;
  (void)read_track_record(track,
                          [&](const track_info__& record) { lacks = awaits_probe_result(record); });
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
  return lacks_probe_result(track) ? exit_unknown : exit_down;
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
