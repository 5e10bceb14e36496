// "delete": removes a track with all that is configured for it, in one commit.
#include "tools/trackctl/command.h"
#include "tools/trackctl/config_session.h"
#include "tools/trackctl/failure.h"
#include "tools/trackctl/names.h"

namespace ot::trackctl {

int run_delete(const arguments& args) {
  CLI::App app{"Remove a track.", "trackctl delete"};
  app.footer("Example: trackctl delete uplink");
  std::string track;
  app.add_option("NAME", track, "the track")->required();
  parse_arguments(app, args);

  check_track_name(track);
  send_commit("deleting track \"" + track + "\"", plan_delete(track, read_existing_track(track)));
  return exit_done;
}

}  // namespace ot::trackctl
