// What policies ask for, and how that stands: it is taken note of here, and done in a turn of its
// own.
#include <utility>

#include "tools/trackpolicy/kernel/netlink_network.h"

namespace ot::trackpolicy {

void netlink_network::keep_route(const std::string& owner, const route& what, wish wanted) {
  doubtful_ = doubtful_ || !routes_.has_owners();
  routes_.set(owner, what, wanted);
  if (routes_.unsettled()) {
    wake(now_us());
  }
}

void netlink_network::forget_route(const std::string& owner) {
  routes_.forget(owner);
  wake(now_us());
}

void netlink_network::keep_link(const std::string& owner, const std::string& track,
                                const std::string& interface, wish up) {
  link_keeper_.set(owner, track, interface, up);
  wake(now_us());
}

void netlink_network::forget_link(const std::string& owner) {
  link_keeper_.forget(owner);
  wake(now_us());
}

void netlink_network::take_foundations(foundations tracks) {
  tracks.keep_routes_of(tracks_);
  tracks_ = std::move(tracks);
  if (link_keeper_.has_owners()) {
    wake(now_us());
  }
}

outcome netlink_network::route_outcome(const std::string& owner) const {
  outcome made = routes_.status(owner);
  if (!trouble_.empty()) {
    made.problem = trouble_;
  }
  return made;
}

outcome netlink_network::link_outcome(const std::string& owner) const {
  outcome made = link_keeper_.status(owner, links_);
  if (!trouble_.empty()) {
    made.problem = trouble_;
  }
  return made;
}

}  // namespace ot::trackpolicy
