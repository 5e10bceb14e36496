// trackpolicy: runs the event policies, in the foreground. What the operator asks of it goes
// through trackctl.
#include <iostream>
#include <string>
#include <vector>

#include "tools/trackpolicy/daemon.h"
#include "tools/trackpolicy/failure.h"

namespace ot::trackpolicy {
namespace {

using arguments = std::vector<std::string>;

constexpr const char* help =
    "usage: trackpolicy             run the policies of /etc/object_tracking/policies.d/*.toml\n"
    "       trackpolicy --help | --version\n\n"
    "SIGHUP reads the policies again; those that are the same go on. `trackctl policy` checks "
    "them,\n"
    "lists them and says what they would do.\n"
    "Exit status: 0 done, 1 failed, 2 usage.\n";

int run(const arguments& args) {
  if (args.empty()) {
    return run_daemon();
  }
  if (args == arguments{"--help"} || args == arguments{"-h"}) {
    std::cout << help;
    return exit_done;
  }
  if (args == arguments{"--version"}) {
    std::cout << "trackpolicy " OT_VERSION "\n";
    return exit_done;
  }
  throw failure(exit_usage, "there is no \"" + args[0] + "\"; `trackpolicy --help` tells more");
}

}  // namespace
}  // namespace ot::trackpolicy

int main(int argc, char** argv) {
  return ot::run_program("trackpolicy", argc, argv, ot::trackpolicy::run);
}
