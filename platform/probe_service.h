// qmon_: the network-probe service.
#pragma once

#include <cstdint>

namespace ot {

// The text of a probe's return code: 0 no result yet, 1 success, others the ways to fail. The text
// of an unknown code names the number and stays valid until the same thread's next call. Any
// thread.
const char* qmon_retCodeToStr(std::uint32_t code) noexcept;

}  // namespace ot
