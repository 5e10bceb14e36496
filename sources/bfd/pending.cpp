// The queue of configuration that waits for the BFD service.

#include "sources/bfd/pending.h"

namespace ot {

std::uint32_t is_bfd_config_pending = 0;

namespace {

lq_queue bfd_cfg_queue;

}  // namespace

void queue_bfd_cfg(std::unique_ptr<bfd_cfg> cfg) noexcept {
  lq_append(bfd_cfg_queue, *cfg.release());
}

std::unique_ptr<bfd_cfg> next_bfd_cfg() noexcept {
  return std::unique_ptr<bfd_cfg>{static_cast<bfd_cfg*>(lq_pop(bfd_cfg_queue))};
}

void drop_bfd_cfgs() noexcept {
  while (next_bfd_cfg() != nullptr) {
  }
  is_bfd_config_pending = 0;
}

std::uint32_t bfd_cfg_count() noexcept {
  return bfd_cfg_queue.count;
}

}  // namespace ot
