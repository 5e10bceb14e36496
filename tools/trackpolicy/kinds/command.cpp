// Commands of the operator. Who they run as is always said: a user, or root in so many words.
#include <pwd.h>

#include <array>

#include "tools/trackpolicy/kinds/command_reaction.h"
#include "tools/trackpolicy/kinds/kinds.h"

namespace ot::trackpolicy {
namespace {

constexpr std::uint32_t timeout_min = 100;
constexpr std::uint32_t time_max = 24 * 3600 * 1000;
constexpr std::uint32_t retry_max = 100;

std::string user_value(const toml::node& node) {
  std::string name = settings::text_value(node);
  const passwd* const found = getpwnam(name.c_str());
  if (found == nullptr) {
    throw settings::value_error("there is no user \"" + name + "\" on this machine");
  }
  if (found->pw_uid == 0) {
    throw settings::value_error("is root; say \"run_as_root = true\" if that is meant");
  }
  return name;
}

template <track_state state>
void take_run(const toml::node& node, policy& to) {
  to.run_on[index_of(state)] = settings::argv_value(node);
}

constexpr std::array own_keys{
    key_row{"run", settings::take_value<&policy::run, settings::argv_value>},
    key_row{"run_up", take_run<track_state::up>},
    key_row{"run_down", take_run<track_state::down>},
    key_row{"run_unknown", take_run<track_state::unknown>},
    key_row{"user", settings::take_value<&policy::user, user_value>, settings::key_common},
    key_row{"run_as_root", settings::take_value<&policy::run_as_root, settings::truth_value>},
    key_row{
        "timeout",
        settings::take_value<&policy::timeout_ms, settings::duration_value, timeout_min, time_max>,
        settings::key_common},
    key_row{"retry", settings::take_value<&policy::retry, settings::number_value, 0, retry_max>,
            settings::key_common},
    key_row{"retry_delay",
            settings::take_value<&policy::retry_delay_ms, settings::duration_value, timeout_min,
                                 time_max>,
            settings::key_common},
    key_row{"every", settings::take_value<&policy::every, settings::truth_value>,
            settings::key_common},
};

void check(const toml::table& table, const policy& of, settings::problem_list& problems) {
  if (of.run.empty() && of.run_on == std::array<words, 3>{}) {
    problems.add(table.source(),
                 "the policy has no command: \"run\", \"run_up\", \"run_down\" or \"run_unknown\"");
  }
  if (of.run_as_root && table.contains("user")) {
    problems.add(table.get("user")->source(), "either \"user\" or \"run_as_root\", not both");
  } else if (of.user.empty() && !of.run_as_root) {
    problems.add(table.source(),
                 "the policy does not say who its command runs as: \"user\", or "
                 "\"run_as_root = true\"");
  }
}

std::unique_ptr<reaction> make(const policy& of, host& on) {
  return std::make_unique<command_reaction>(of, on);
}

std::string describe(const policy& of, track_state state) {
  const words& argv = command_for(of, state);
  if (argv.empty()) {
    return "does nothing";
  }
  std::string text = "runs as " + (of.run_as_root ? "root" : of.user) + ", for at most " +
                     std::to_string(of.timeout_ms) + " ms:";
  for (const std::string& word : argv) {
    const bool plain = !word.empty() && word.find_first_of(" \t\n\"'") == std::string::npos;
    text += plain ? ' ' + word : " \"" + word + '"';
  }
  return text;
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
