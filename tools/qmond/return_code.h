// What a probe came to. The numbers are those of the statistics table; qmon_retCodeToStr has their
// texts.
#pragma once

#include <cstdint>

namespace ot::qmond {

enum class return_code : std::uint32_t {
  none = 0,  // no result yet
  ok = 1,
  no_answer = 2,
  unreachable = 3,
  refused = 4,
  name_not_resolved = 5,
  bad_answer = 6,
  cannot_run = 7,
};

// The return code of a connection or a packet that failed with that errno value.
return_code code_of_errno(int error) noexcept;

}  // namespace ot::qmond
