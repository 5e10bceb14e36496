// The table of commands and the one way in which they parse their arguments.
#include <algorithm>
#include <array>
#include <iostream>

#include "tools/trackctl/command.h"
#include "tools/trackctl/failure.h"

namespace ot::trackctl {
namespace {

constexpr std::array table{
    command{"set", "set NAME KIND ... [--delay-up S] [--delay-down S]",
            "create a track, or make it exactly what is said", run_set},
    command{"delay", "delay NAME [--up S] [--down S]", "change the delays of a track", run_delay},
    command{"delete", "delete NAME", "remove a track", run_delete},
    command{"show", "show [NAME] [--detail] [--json]", "show one track or all", run_show},
    command{"state", "state NAME", "print up, down or unknown; exit 0, 10 or 11", run_state},
    command{"events", "events [--track NAME]... [--state up|down] [--json]",
            "follow changes of state as they happen", run_events},
    command{"engine", "engine [--json]",
            "show what the service is connected to, since when, and what waits", run_engine},
    command{"debug", "debug [detail|error|notification] [on|off]",
            "show or switch the service's trace flags", run_debug},
};

}  // namespace

std::span<const command> commands() noexcept {
  return table;
}

const command* find_command(std::string_view word) noexcept {
  const auto* const found = std::find_if(table.begin(), table.end(),
                                         [word](const command& row) { return row.word == word; });
  return found == table.end() ? nullptr : found;
}

void parse_arguments(CLI::App& app, const arguments& args) {
  try {
    app.parse(arguments(args.rbegin(), args.rend()));
  } catch (const CLI::Success&) {
    std::cout << app.help();
    throw help_shown{};
  } catch (const CLI::ParseError& error) {
    throw failure(exit_usage,
                  std::string(error.what()) + "; `" + app.get_name() + " --help` shows how");
  }
}

}  // namespace ot::trackctl
