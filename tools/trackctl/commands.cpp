// The table of commands: how each is called, what it is for, and what runs it.
#include <algorithm>
#include <array>

#include "tools/trackctl/command.h"

namespace ot::trackctl {
namespace {

constexpr std::array table{
    command{"set", "set NAME KIND ... [--delay-up S] [--delay-down S]",
            "create a track, or make it exactly what is said", run_set},
    command{"delay", "delay NAME [--up S] [--down S]", "change the delays of a track", run_delay},
    command{"delete", "delete NAME", "remove a track", run_delete},
    command{"export", "export [NAME ...] [--json]",
            "print the configuration as a file that apply reads", run_export},
    command{"apply", "apply FILE|- [--prune] [--dry-run] [--json]",
            "make the tracks what a file says, all or nothing", run_apply},
    command{"diff", "diff FILE|- [--json]",
            "compare the configuration with a file; exit 0 the same, 1 not", run_diff},
    command{"explain", "explain NAME [--json]",
            "tell why a track is up or down, and what would bring a list up", run_explain},
    command{"what-if", "what-if NAME=up|down ... [--file FILE [--prune]] [--json]",
            "tell what would become of the tracks; change nothing", run_what_if},
    command{"show", "show [NAME] [--detail] [--json]", "show one track or all", run_show},
    command{"state", "state NAME ... [--wait up|down] [--timeout T] [--json]",
            "print up, down or unknown, once it is so; exit 0, 10 or 11", run_state},
    command{"history", "history [NAME] [--since T] [--json]",
            "show the last changes, why, and how long each state lasted", run_history},
    command{"watch", "watch [NAME ...]", "show tracks live, with the last hour of each", run_watch},
    command{"events", "events [--track NAME]... [--state up|down] [--json]",
            "follow changes of state as they happen", run_events},
    command{"engine", "engine [--json]",
            "show what the service is connected to, since when, and what waits", run_engine},
    command{"metrics", "metrics [--prometheus] [--output FILE | --http]",
            "print what can be measured, for Prometheus", run_metrics},
    command{"policy", "policy list|test|check ...",
            "list what is done when tracks change, try it, check its files", run_policy},
    command{"debug", "debug [detail|error|notification] [on|off] [--json]",
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

}  // namespace ot::trackctl
