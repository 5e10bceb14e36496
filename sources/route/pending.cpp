// The queue of pending route configuration.

#include "sources/route/pending.h"

#include <memory>
#include <new>

#include "core/debug.h"
#include "core/track.h"
#include "platform/linked_queue.h"
#include "platform/status.h"
#include "platform/vrf_service.h"
#include "sources/route/track.h"

namespace ot {
namespace {

struct pending_route : lq_link {
  vrf_text vrf;  // empty for an address item
  track_name track;
  std::uint32_t prefix = 0;
  std::uint32_t mask = 0;
  std::uint32_t has_address = 0;
};

lq_queue cfg_queue;

std::unique_ptr<pending_route> next_pending() noexcept {
  return std::unique_ptr<pending_route>{static_cast<pending_route*>(lq_pop(cfg_queue))};
}

}  // namespace

int queue_pending_route(const char* track, const char* vrf_name, std::uint32_t prefix,
                        std::uint32_t mask, bool has_address) noexcept {
  auto* item = new (std::nothrow) pending_route{};
  if (item == nullptr) {
    return no_memory;
  }
  item->vrf.assign(vrf_name == nullptr ? "" : vrf_name);
  item->track.assign(track);
  item->prefix = prefix;
  item->mask = mask;
  item->has_address = has_address ? 1 : 0;
  lq_append(cfg_queue, *item);
  return status_ok;
}

void replay_pending_routes() {
  while (const auto item = next_pending()) {
    const int status = object_tracking_type_route_create(
        item->track.c_str(), item->vrf.empty() ? nullptr : item->vrf.c_str(), item->prefix,
        item->mask, item->has_address != 0);
    if (status != status_ok) {
      OT_TRACE_ERROR("(%s) : object_tracking_type_route_create failed - %s",
                     "ot_fec_reconnect_handler", err_string(status));
    }
  }
}

void drop_pending_routes() noexcept {
  while (next_pending() != nullptr) {
  }
}

std::uint32_t pending_route_count() noexcept {
  return cfg_queue.count;
}

}  // namespace ot
