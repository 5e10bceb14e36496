// What the kinds share that run a program: the keys that say as whom, for how long and how often,
// and what is run in words.
#pragma once

#include <algorithm>
#include <array>
#include <string>

#include "tools/trackpolicy/kinds/kinds.h"

namespace ot::trackpolicy {

inline constexpr std::uint32_t timeout_min = 100;
inline constexpr std::uint32_t timeout_max = 24 * 3600 * 1000;
inline constexpr std::uint32_t retry_max = 100;

// A user of this machine, who is not root.
std::string user_value(const toml::node& node);

inline constexpr std::array running_keys{
    key_row{"user", settings::take_value<&policy::user, user_value>, settings::key_common},
    key_row{"run_as_root", settings::take_value<&policy::run_as_root, settings::truth_value>},
    key_row{"timeout",
            settings::take_value<&policy::timeout_ms, settings::duration_value, timeout_min,
                                 timeout_max>,
            settings::key_common},
    key_row{"retry", settings::take_value<&policy::retry, settings::number_value, 0, retry_max>,
            settings::key_common},
    key_row{"retry_delay",
            settings::take_value<&policy::retry_delay_ms, settings::duration_value, timeout_min,
                                 timeout_max>,
            settings::key_common},
    key_row{"every", settings::take_value<&policy::every, settings::truth_value>,
            settings::key_common},
};

// A kind's own keys with these behind them.
template <std::size_t count>
constexpr auto with_running_keys(const std::array<key_row, count>& own) {
  std::array<key_row, count + running_keys.size()> all{};
  std::copy(running_keys.begin(), running_keys.end(),
            std::copy(own.begin(), own.end(), all.begin()));
  return all;
}

// That the policy says who it runs as, and only once.
void check_runner(const toml::table& table, const policy& of, settings::problem_list& problems);

// "runs as ..."; that it does nothing when `argv` is empty.
std::string describe_run(const policy& of, const words& argv);

}  // namespace ot::trackpolicy
