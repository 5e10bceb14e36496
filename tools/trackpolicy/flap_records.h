// What is remembered of flaps, and its text: a line a policy.
#pragma once

#include <map>
#include <string>
#include <utility>

#include "tools/trackpolicy/state_filter.h"

namespace ot::trackpolicy {

// By the names of the policy and of its track.
using flap_records = std::map<std::pair<std::string, std::string>, flap_record>;

std::string text_of(const flap_records& all);
// What cannot be read counts as nothing.
flap_records read_flaps(const std::string& text);

}  // namespace ot::trackpolicy
