// "explain": why a track is what it is, and what would change it.
#include <chrono>
#include <iostream>

#include "tools/json.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/explain/gather.h"
#include "tools/trackctl/explain/text.h"
#include "tools/trackctl/explain/tree.h"
#include "tools/trackctl/json_text.h"
#include "tools/trackctl/names.h"

namespace ot::trackctl {

int run_explain(const arguments& args) {
  command_line app{
      "Tell why a track is up or down: the delay that runs, how what it follows looks now, what "
      "each "
      "member of a list brings, and the fewest changes that would bring a list up.",
      "trackctl explain"};
  app.footer("Example: trackctl explain site");
  std::string name;
  bool json = false;
  app.add_option("NAME", name, "the track").required();
  app.add_flag("--json", json, "for programs: an object with the same content");
  parse_arguments(app, args);
  check_track_name(name);
  const explain::site tracks = explain::gather(name);
  const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::system_clock::now().time_since_epoch());
  const auto tree = explain::make_tree(tracks, name, now.count());
  if (json) {
    std::cout << json_text(tree);
  } else {
    std::cout << explain::text_of(tree);
  }
  return exit_done;
}

}  // namespace ot::trackctl
