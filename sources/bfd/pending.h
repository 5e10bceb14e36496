// BFD configuration records, and the queue of those that wait for the BFD service. Main thread.
#pragma once

#include <cstdint>
#include <memory>

#include "core/track.h"
#include "platform/linked_queue.h"

namespace ot {

// One session as configured.
struct bfd_cfg : lq_link {
  track_name name;
  fixed_text<64> interface;
  std::uint32_t destaddress = 0;  // network byte order
  std::uint32_t rate = 0;
  std::uint32_t debounce_count = 0;
  std::uint32_t type_number = 0;  // of the configuration path
};

// Non-zero while configuration waits.
extern std::uint32_t is_bfd_config_pending;

void queue_bfd_cfg(std::unique_ptr<bfd_cfg> cfg) noexcept;
// The oldest record, or null.
std::unique_ptr<bfd_cfg> next_bfd_cfg() noexcept;
// Frees the queue: the end of a service in a test.
void drop_bfd_cfgs() noexcept;
// How many wait.
std::uint32_t bfd_cfg_count() noexcept;

}  // namespace ot
