// How often the service has been started since the machine was.
#pragma once

#include <cstdint>

namespace ot {

// Counts this start: 1 for the first after a boot. The count is kept, with the boot it belongs to,
// in the run directory. 0 or a status code.
int start_count_next(std::uint32_t* ret) noexcept;

}  // namespace ot
