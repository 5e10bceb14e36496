// The table of commands. Finds the command and turns what it throws into an exit status.
#include <algorithm>
#include <array>
#include <iostream>

#include "platform/linux/standard_descriptors.h"
#include "tools/trackctl/command.h"

namespace ot::trackctl {
namespace {

struct command {
  const char* word;
  const char* usage;  // what follows "trackctl"
  const char* summary;
  int (*run)(const arguments& args);
};

constexpr std::array commands{
    command{"set", "set NAME KIND ... [--delay-up S] [--delay-down S]",
            "create a track, or make it exactly what is said", run_set},
    command{"delay", "delay NAME [--up S] [--down S]", "change the delays of a track", run_delay},
    command{"delete", "delete NAME", "remove a track", run_delete},
    command{"export", "export [NAME ...]", "print the configuration as a file that apply reads",
            run_export},
    command{"apply", "apply FILE|- [--prune] [--dry-run]",
            "make the tracks what a file says, all or nothing", run_apply},
    command{"diff", "diff FILE|-", "compare the configuration with a file; exit 0 the same, 1 not",
            run_diff},
    command{"show", "show [NAME] [--detail] [--json]", "show one track or all", run_show},
    command{"state", "state NAME", "print up, down or unknown; exit 0, 10 or 11", run_state},
    command{"events", "events [--track NAME]... [--state up|down] [--json]",
            "follow changes of state as they happen", run_events},
    command{"engine", "engine [--json]",
            "show what the service is connected to, since when, and what waits", run_engine},
    command{"debug", "debug [detail|error|notification] [on|off]",
            "show or switch the service's trace flags", run_debug},
};

void print_help() {
  std::cout << "trackctl: configure object tracks, look at them, follow them\n\n";
  for (const command& row : commands) {
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
  const auto* const found = std::find_if(commands.begin(), commands.end(),
                                         [&](const command& row) { return row.word == args[0]; });
  if (found == commands.end()) {
    throw failure(exit_usage,
                  "there is no command \"" + args[0] + "\"; `trackctl --help` lists them");
  }
  return found->run({args.begin() + 1, args.end()});
}

}  // namespace
}  // namespace ot::trackctl

int main(int argc, char** argv) {
  using namespace ot::trackctl;
  try {
    ot::reserve_standard_descriptors();
    const int status = run({argv + 1, argv + argc});
    check_output();
    return status;
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
