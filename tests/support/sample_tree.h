// A small configuration tree with one leaf of each kind of value, whose verify and apply functions
// write down what they are called with and answer as they were set to.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/ledger_config.h"

namespace ot::test {

inline constexpr const char* sample_root = "/cfg/gl/sample/";

struct sample_calls {
  std::vector<std::string> verified;  // "create thing/<name>/a", with the values' numbers or texts
  std::vector<std::string> applied;
  std::vector<std::string> expected;      // of "a", then "forgotten" for each end of a verification
  std::map<std::string, int> refuse;      // first field -> code of its verifier
  std::map<std::string, int> fail_apply;  // first field -> code of its apply function
  int (*while_verifying)() = nullptr;     // run inside every verifier
};
// Started anew by each register_sample_tree.
sample_calls& sample();

// Leaves: thing/<name>/a (u32, the existence of a thing), thing/<name>/text (text),
// thing/<name>/kind/<n>/pair (a tuple of two numbers, of which the last one set is in force),
// thing/<name>/missing (handled by nothing) and thing/<name>/note (only kept). A name has at most
// 39 characters, a number is at least 1.
int register_sample_tree();

}  // namespace ot::test
