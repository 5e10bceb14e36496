// Lines of FRR's shell for each state: they are given to one vtysh, a command like others, which
// ends at the first line that is refused.
#include <array>

#include "tools/trackpolicy/kinds/command_reaction.h"
#include "tools/trackpolicy/kinds/running.h"

namespace ot::trackpolicy {
namespace {

constexpr std::size_t lines_max = 500;
constexpr std::size_t line_max = 1000;  // a vtysh has a buffer of fixed size for one

std::string line_value(const toml::node& node) {
  const toml::value<std::string>* const text = node.as_string();
  if (text == nullptr || text->get().find_first_not_of(" \t") == std::string::npos ||
      text->get().find_first_of(std::string_view("\n\r\0", 3)) != std::string::npos ||
      text->get().size() > line_max) {
    throw settings::value_error("must be a line of vtysh, a text of at most " +
                                std::to_string(line_max) + " characters");
  }
  return text->get();
}

template <track_state state>
void take_lines(const toml::node& node, policy& to) {
  const toml::array* const list = node.as_array();
  if (list == nullptr || list->empty() || list->size() > lines_max) {
    throw settings::value_error("must be a list of lines of vtysh, 1 to " +
                                std::to_string(lines_max));
  }
  words lines;
  settings::read_elements(*list,
                          [&lines](const toml::node& each) { lines.push_back(line_value(each)); });
  to.lines[index_of(state)] = std::move(lines);
}

constexpr auto own_keys = with_running_keys(std::array{
    key_row{"up", take_lines<track_state::up>},
    key_row{"down", take_lines<track_state::down>},
    key_row{"unknown", take_lines<track_state::unknown>},
    key_row{"vtysh", settings::take_value<&policy::vtysh, settings::argv_value>,
            settings::key_common},
});

void check(const toml::table& table, const policy& of, settings::problem_list& problems) {
  if (of.lines == std::array<words, 3>{}) {
    problems.add(table.source(),
                 "the policy has no lines for vtysh: \"up\", \"down\" or \"unknown\"");
  }
  check_runner(table, of, problems);
}

// The same as a policy whose commands are vtysh.
policy as_command(policy of) {
  of.run.clear();
  for (std::size_t state = 0; state < of.lines.size(); ++state) {
    words& argv = of.run_on.at(state);
    argv = of.lines.at(state).empty() ? words{} : of.vtysh;
    for (const std::string& line : of.lines.at(state)) {
      argv.insert(argv.end(), {"-c", line});
    }
  }
  return of;
}

class frr_reaction : public command_reaction {
 public:
  frr_reaction(const policy& of, host& on) : command_reaction(as_command(of), on) {}
  void change(const policy& to) override { command_reaction::change(as_command(to)); }
};

std::unique_ptr<reaction> make(const policy& of, host& on) {
  return std::make_unique<frr_reaction>(of, on);
}

std::string describe(const policy& of, track_state state) {
  return describe_run(of, command_for(as_command(of), state));
}

}  // namespace

constinit const kind frr_kind{
    .id = kind_id::frr,
    .word = "frr",
    .keys = own_keys,
    .check = check,
    .make = make,
    .describe = describe,
};

}  // namespace ot::trackpolicy
