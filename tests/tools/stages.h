// A planned commit as its stages, one after the other.
#pragma once

#include <vector>

#include "tools/trackctl/configuration.h"

namespace ot::trackctl {

inline std::vector<commit> stages_of(const commit& changes) {
  std::vector<commit> stages;
  for (const ledger_proposal& change : changes) {
    if (stages.empty() || stages.back().back().stage != change.stage) {
      stages.emplace_back();
    }
    stages.back().push_back(change);
  }
  return stages;
}

}  // namespace ot::trackctl
