// What can be said of a policy in a file, and what is wrong with what is said.
#pragma once

#include <toml++/toml.h>

#include "tools/settings/problems.h"
#include "tools/trackpolicy/policy.h"

namespace ot::trackpolicy {

// The keys of [defaults].
void read_common_keys(const toml::table& table, policy* ret, settings::problem_list& problems);

// A [[policy]]; `ret` comes with the defaults. Reports every problem that can be seen. False when
// it has no usable name.
bool read_policy(const toml::table& table, policy* ret, settings::problem_list& problems);

}  // namespace ot::trackpolicy
