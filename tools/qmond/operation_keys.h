// What can be said of an operation in the configuration file, and what is wrong with what is said.
#pragma once

#include <toml++/toml.h>

#include "tools/qmond/config.h"

namespace ot::qmond {

using settings::problem_list;

// The keys of [defaults]: those that operations of several kinds have.
void read_common_keys(const toml::table& table, operation* ret, problem_list& problems);

// An [[operation]]; `ret` comes with the defaults. Reports every problem that can be seen, also
// where the kind is none: then whatever any kind has is read. False when it has no usable id.
bool read_operation(const toml::table& table, operation* ret, problem_list& problems);

}  // namespace ot::qmond
