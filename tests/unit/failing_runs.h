// One operation run again and again, each time with the next of its allocations failing.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "platform/memory/alloc_faults.h"

namespace ot::test {

// The results of the runs that were hit; the run that is not must give 0. `prepare()` makes what
// each run starts from, `check(k, result)` looks at what a run has left behind.
template <typename Prepare, typename Operation, typename Check>
std::vector<int> failing_results(Prepare prepare, Operation operation, Check check) {
  prepare();
  std::vector<int> results;
  int status = 0;
  for_each_failing_allocation([&] { status = operation(); },
                              [&](std::uint64_t k, bool hit) {
                                if (!hit) {
                                  EXPECT_EQ(status, 0);
                                  return;
                                }
                                results.push_back(status);
                                check(k, status);
                                prepare();
                              },
                              50);
  return results;
}

}  // namespace ot::test
