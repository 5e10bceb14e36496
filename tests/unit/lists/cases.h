// Random histories of tracks and lists, run against the service and against the model side by side.
// A history is a row of steps, each of which means something whatever came before it, so that
// leaving some out gives another history: that is how a failing one is made small.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/unit/lists/model.h"

namespace ot::test {

enum class step_kind { report, member, drop_member, limits, delays, erase, wait };

struct step {
  step_kind kind = step_kind::wait;
  std::uint32_t track = 0;  // the tracks are called t0, t1, ...
  std::uint32_t other = 0;  // the member
  std::uint32_t type = 0;   // of a list
  std::uint32_t a = 0;      // state, value, up limit, delay up, milliseconds
  std::uint32_t b = 0;      // down limit, delay down; of a member: 1 hides the old value
};

using history = std::vector<step>;

std::string step_name(std::uint32_t track);

// The history of that number; always the same.
history make_history(std::uint64_t which);

// A history of many lists: chains in the worst order for the table's walk, cycles, lists of up to
// 200 members, of all types. `buckets` are the table's.
history make_large_history(std::uint64_t which, std::uint32_t buckets);

// Runs it on the service, which has been started and has no tracks, and on the model. Empty, or the
// first difference, found after a wait. The service has no tracks afterwards.
std::string run_history(const history& steps, list_model& model);

// Leaves out what does not matter: as long as `fails` says that a shorter one still fails.
template <typename Fails>
history shrink(history steps, Fails&& fails) {
  for (std::size_t chunk = steps.size() / 2; chunk > 0; chunk /= 2) {
    for (std::size_t at = 0; at + chunk <= steps.size();) {
      history shorter = steps;
      const auto first = shorter.begin() + static_cast<std::ptrdiff_t>(at);
      shorter.erase(first, first + static_cast<std::ptrdiff_t>(chunk));
      if (fails(shorter)) {
        steps = shorter;
      } else {
        at += chunk;
      }
    }
  }
  return steps;
}

// One line a step.
std::string text_of(const history& steps);

}  // namespace ot::test
