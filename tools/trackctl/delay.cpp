// "delay": changes one delay of a track or both, and leaves the rest of it alone.
#include <algorithm>
#include <optional>

#include "tools/trackctl/command.h"
#include "tools/trackctl/config_session.h"
#include "tools/trackctl/engine_reader.h"
#include "tools/trackctl/failure.h"
#include "tools/trackctl/names.h"
#include "tools/trackctl/track_kind.h"

namespace ot::trackctl {
namespace {

// Whether the track is of a kind whose tracks are made late, when their engine is there.
bool waits_for_engine_kind(const track_items& present) {
  return std::any_of(track_kinds().begin(), track_kinds().end(), [&](const track_kind& kind) {
    return kind.only_from_nothing &&
           std::any_of(present.begin(), present.end(),
                       [&](const auto& item) { return item.first.starts_with(kind.folder); });
  });
}

}  // namespace

int run_delay(const arguments& args) {
  CLI::App app{"Change the delays of a track; one that is not given stays as it is.",
               "trackctl delay"};
  app.footer("Example: trackctl delay uplink --up 10 --down 0");
  std::string track;
  std::optional<std::string> up_text;
  std::optional<std::string> down_text;
  app.add_option("NAME", track, "the track")->required();
  app.add_option("--up", up_text, "seconds before a change to up is published; 0 at once");
  app.add_option("--down", down_text, "the same for a change to down");
  parse_arguments(app, args);
  if (!up_text && !down_text) {
    throw failure(exit_usage, "delay: give --up, --down or both");
  }

  check_track_name(track);
  std::optional<std::uint32_t> up;
  std::optional<std::uint32_t> down;
  if (up_text) {
    up = parse_delay("--up", *up_text);
  }
  if (down_text) {
    down = parse_delay("--down", *down_text);
  }
  const track_items present = read_existing_track(track);
  const commit changes = plan_delay(track, present, up, down);
  if (!changes.empty()) {
    if (waits_for_engine_kind(present) && (up.value_or(0) != 0 || down.value_or(0) != 0)) {
      require_session_before_delays(track, false);
    }
    send_commit("changing the delays of track \"" + track + "\"", changes);
  }
  return exit_done;
}

}  // namespace ot::trackctl
