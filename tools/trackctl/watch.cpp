// "watch": a program of its own beside this one, since it alone needs a library for terminals,
// which every other command would have to load at its start.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "tools/trackctl/command.h"
#include "tools/trackctl/configuration.h"
#include "tools/trackctl/names.h"

namespace ot::trackctl {

int run_watch(const arguments& args) {
  command_line app{
      "Show tracks live on the whole terminal: state, for how long, how often it left up in the "
      "last "
      "hour, and that hour in small: full where the track was up, low where it was not.\n"
      "Keys: q quits; arrows, page up and down, home and end scroll.\n"
      "Exit status: 0 after q, 3 when the service goes away.",
      "trackctl watch"};
  app.footer("Example: trackctl watch uplink backup");
  arguments names;
  app.add_option("NAME", names, "only these tracks");
  parse_arguments(app, args);
  for (const std::string& name : names) {
    check_track_name(name);
  }
  if (isatty(STDIN_FILENO) != 1 || isatty(STDOUT_FILENO) != 1) {
    throw failure(exit_usage,
                  "watch: it needs a terminal; `trackctl events` follows in lines, and `trackctl "
                  "show` prints what is now");
  }
  for (const std::string& name : names) {
    (void)read_existing_track(name);
  }
  std::error_code error;
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
  const std::string program = self.parent_path() / "trackctl-watch";
  // What follows is names: one may be "--version".
  std::string names_follow = "--";
  std::vector<char*> words{const_cast<char*>(program.c_str()), names_follow.data()};
  for (std::string& name : names) {
    words.push_back(name.data());
  }
  words.push_back(nullptr);
  execv(program.c_str(), words.data());
  throw failure(exit_refused, "watch: " + program + ": " + std::strerror(errno) +
                                  "; it is built where libncurses-dev is installed");
}

}  // namespace ot::trackctl
