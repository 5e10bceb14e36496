// What `what-if` prints. Pure.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "tools/trackctl/what_if/question.h"
#include "tools/what_if/question.h"

namespace ot::trackctl {

struct what_if_report {
  std::vector<what_if::assumption> assumptions;
  what_if::answer found;
  std::vector<unknown_object> unknown;
};

// A new track is unknown until its list is computed, a moment later. Makes one change of the two.
void join_births(what_if::answer& found);

// A line a change, then notes.
std::string what_if_text(const what_if_report& report);
nlohmann::ordered_json what_if_json(const what_if_report& report);

}  // namespace ot::trackctl
