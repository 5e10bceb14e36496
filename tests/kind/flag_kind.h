// What the tests see of the kind in flag_kind.cpp.
#pragma once

#include <string>
#include <vector>

#include "core/track_type.h"

namespace ot::test {

inline constexpr auto flag_type = static_cast<track_type>(10);

struct flag_kind_calls {
  int tables_created = 0;
  int tables_dropped = 0;
  std::vector<std::string> detached;
  int detach_result = 0;
};
extern flag_kind_calls flag_calls;

}  // namespace ot::test
