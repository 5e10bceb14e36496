// A source of the event loop that ends with its owner.
#pragma once

#include <systemd/sd-event.h>

#include <memory>

namespace ot {

struct event_source_closer {
  void operator()(sd_event_source* source) const noexcept { sd_event_source_disable_unref(source); }
};
using event_source = std::unique_ptr<sd_event_source, event_source_closer>;

}  // namespace ot
