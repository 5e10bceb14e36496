// Commands of the operator.
#include <array>

#include "tools/trackpolicy/kinds/command_reaction.h"
#include "tools/trackpolicy/kinds/running.h"

namespace ot::trackpolicy {
namespace {

template <track_state state>
void take_run(const toml::node& node, policy& to) {
  to.run_on[index_of(state)] = settings::argv_value(node);
}

constexpr auto own_keys = with_running_keys(std::array{
    key_row{"run", settings::take_value<&policy::run, settings::argv_value>},
    key_row{"run_up", take_run<track_state::up>},
    key_row{"run_down", take_run<track_state::down>},
    key_row{"run_unknown", take_run<track_state::unknown>},
});

void check(const toml::table& table, const policy& of, settings::problem_list& problems) {
  if (of.run.empty() && of.run_on == std::array<words, 3>{}) {
    problems.add(table.source(),
                 "the policy has no command: \"run\", \"run_up\", \"run_down\" or \"run_unknown\"");
  }
  check_runner(table, of, problems);
}

std::unique_ptr<reaction> make(const policy& of, host& on) {
  return std::make_unique<command_reaction>(of, on);
}

std::string describe(const policy& of, track_state state) {
  return describe_run(of, command_for(of, state));
}

}  // namespace

constinit const kind command_kind{
    .id = kind_id::command,
    .word = "command",
    .keys = own_keys,
    .check = check,
    .make = make,
    .describe = describe,
};

}  // namespace ot::trackpolicy
