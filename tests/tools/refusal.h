// What a check of trackctl says against its argument.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tools/trackctl/command.h"

namespace ot::trackctl {

// The text with which `check` refuses, as wrong usage; "" when it accepts.
template <typename Check>
std::string refusal(Check check) {
  try {
    check();
    return "";
  } catch (const failure& reason) {
    EXPECT_EQ(reason.status, exit_usage);
    return reason.what();
  }
}

}  // namespace ot::trackctl
