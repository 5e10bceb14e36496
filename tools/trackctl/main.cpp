// trackctl: the operator's tool. Configures tracks, shows them, follows them; speaks to the ledger
// and to the event publisher only. This file finds the command and turns what it throws into an
// exit status.
#include <iostream>

#include "tools/trackctl/command.h"
#include "tools/trackctl/failure.h"

namespace ot::trackctl {
namespace {

void print_help() {
  std::cout << "trackctl: configure object tracks, look at them, follow them\n\n";
  for (const command& row : commands()) {
    std::cout << "  trackctl " << row.usage << "\n      " << row.summary << '\n';
  }
  std::cout << "\n`trackctl COMMAND --help` tells more.\n"
               "Exit status: 0 done, 1 refused or failed, 2 usage, 3 the service is not running.\n";
}

int run(const arguments& args) {
  if (args.empty()) {
    throw failure(exit_usage, "which command? `trackctl --help` lists them");
  }
  if (args[0] == "--help" || args[0] == "-h" || args[0] == "help") {
    print_help();
    return exit_done;
  }
  if (args[0] == "--version") {
    std::cout << "trackctl " OT_VERSION "\n";
    return exit_done;
  }
  const command* const found = find_command(args[0]);
  if (found == nullptr) {
    throw failure(exit_usage,
                  "there is no command \"" + args[0] + "\"; `trackctl --help` lists them");
  }
  return found->run({args.begin() + 1, args.end()});
}

// What stands in the buffer may still fail to reach a full disk.
int flushed(int status) {
  std::cout.flush();
  if (!std::cout) {
    throw failure(exit_refused, "standard output cannot be written");
  }
  return status;
}

}  // namespace
}  // namespace ot::trackctl

int main(int argc, char** argv) {
  using namespace ot::trackctl;
  try {
    return flushed(run({argv + 1, argv + argc}));
  } catch (const help_shown&) {
    return exit_done;
  } catch (const failure& reason) {
    std::cerr << "trackctl: " << reason.what() << '\n';
    return reason.status;
  } catch (const std::exception& error) {
    std::cerr << "trackctl: " << error.what() << '\n';
    return exit_refused;
  }
}
