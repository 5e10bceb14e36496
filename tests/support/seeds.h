// The seeds of tests that go by chance. OT_SEED repeats the run of one.
#pragma once

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace ot::test {

// One for each of `runs` runs; that of OT_SEED alone where it is set.
inline std::vector<unsigned> seeds(unsigned runs) {
  if (const char* wanted = std::getenv("OT_SEED")) {
    return {static_cast<unsigned>(std::strtoul(wanted, nullptr, 10))};
  }
  std::vector<unsigned> all(runs);
  std::random_device source;
  for (unsigned& seed : all) {
    seed = source();
  }
  return all;
}

inline unsigned one_seed() {
  return seeds(1).front();
}

// For SCOPED_TRACE: what repeats the run that failed.
inline std::string shown(unsigned seed) {
  return "OT_SEED=" + std::to_string(seed);
}

}  // namespace ot::test
