// A turn: the events that wait are taken in, what is doubtful is read anew, and the keepers act on
// what differs. Our own changes come back as events at once, and are taken in at the end.
#include "tools/trackpolicy/kernel/netlink_network.h"

#include <linux/rtnetlink.h>

#include <algorithm>
#include <system_error>
#include <utility>

#include "platform/linux/monotonic.h"

namespace ot::trackpolicy {
namespace {

constexpr std::uint64_t never = UINT64_MAX;
constexpr std::uint64_t accuracy_us = 1;
constexpr std::uint64_t retry_us = 5'000'000;
// The kernel tells everything that matters; if it does not, the worst is over after this.
constexpr std::uint64_t audit_us = 60'000'000;
// A dump of a large table takes a while; it takes no more than this part of the time.
constexpr std::uint64_t compare_part = 10;

}  // namespace

netlink_network::netlink_network(sd_event* loop, const std::string& folder, tell_fn tell_operator)
    : loop_(loop),
      links_path_(folder + "/.links"),
      routes_path_(folder + "/.routes"),
      tell_(std::move(tell_operator)) {
  timer_ = loop_source::timer(loop_, never, accuracy_us, [this](std::uint32_t) {
    wake_at_us_ = never;
    turn();
  });
  recall();
}

// --- Turns ---------------------------------------------------------------------------------------

// A time that is later than one that is set already changes nothing.
void netlink_network::wake(std::uint64_t when_us) {
  if (when_us < wake_at_us_) {
    wake_at_us_ = when_us;
    timer_.set_time(when_us);
  }
}

void netlink_network::turn() {
  if (!needed()) {
    close();
    return;
  }
  if (!open()) {
    wake(now_us() + retry_us);
    return;
  }
  remember_routes();
  read_events();
  if (now_us() >= retry_at_us_ || std::exchange(try_again_, false)) {
    doubtful_ = true;
    retry_at_us_ = never;
    routes_.try_again();
  }
  if ((doubtful_ && now_us() >= compare_at_us_) || now_us() >= audit_at_us_) {
    compare();
  }
  const std::uint64_t routes_next = routes_.settle(now_us(), links_, *this);
  const std::uint64_t links_next = link_keeper_.settle(links_, tracks_, *this);
  read_events();
  remember_routes();
  if (!routes_.refused()) {
    retry_at_us_ = never;
  } else if (retry_at_us_ == never) {
    retry_at_us_ = now_us() + retry_us;
  }
  if (routes_.unsettled() || try_again_) {
    wake(now_us());
  }
  wake(std::min(
      {routes_next, links_next, retry_at_us_, audit_at_us_, doubtful_ ? compare_at_us_ : never}));
}

bool netlink_network::needed() const {
  return has_routes() || link_keeper_.has_owners() || !link_keeper_.held().empty();
}

// Else routes of our protocol, if there are any, are those of another instance.
bool netlink_network::has_routes() const {
  return left_behind_ || routes_.has_owners();
}

bool netlink_network::open() {
  if (open_) {
    return true;
  }
  int error = kernel_.open(loop_, [this] { turn(); });
  if (error == 0) {
    error = kernel_.read_links(links_);
  }
  if (error != 0) {
    const std::string text =
        "the kernel's routes cannot be read: " + std::generic_category().message(error);
    if (std::exchange(trouble_, text) != text) {
      tell_("trackpolicy", text);
    }
    close();
    return false;
  }
  trouble_.clear();
  open_ = doubtful_ = true;
  compare_at_us_ = 0;
  return true;
}

void netlink_network::close() {
  kernel_.close();
  open_ = false;
}

// --- Events --------------------------------------------------------------------------------------

void netlink_network::read_events() {
  const bool whole = kernel_.read_events(
      [](void* self, const nlmsghdr& message) {
        static_cast<netlink_network*>(self)->take_event(message);
      },
      this);
  if (!whole) {
    (void)kernel_.read_links(links_);
    doubtful_ = try_again_ = true;
  }
}

void netlink_network::take_event(const nlmsghdr& message) {
  route_news news;
  link_fact link;
  bool gone = false;
  if (read_route(message, &news)) {
    take_route(news, message.nlmsg_pid == kernel_.port());
  } else if (read_link(message, &link, &gone)) {
    take_link(link, gone);
  } else if (message.nlmsg_type == RTM_NEWADDR || message.nlmsg_type == RTM_DELADDR) {
    doubtful_ = try_again_ = true;
  }
}

// With an interface or an address routes go, and the kernel does not tell that of all.
void netlink_network::take_link(const link_fact& link, bool gone) {
  const bool changed = gone ? links_.erase(link.index) : links_.put(link);
  if (changed) {
    doubtful_ = try_again_ = true;
  }
}

void netlink_network::take_route(const route_news& what, bool by_us) {
  if (!has_routes()) {
    return;
  }
  for (const kernel_route& each : what.routes) {
    if (what.protocol == route_protocol) {
      routes_.take_one(each, what.there, by_us);
      doubtful_ = doubtful_ || what.replaces;
    } else if (routes_.has(each.key)) {
      doubtful_ = true;
    }
  }
}

void netlink_network::compare() {
  const std::uint64_t begun = now_us();
  kernel_.await_link_changes();
  read_events();
  std::vector<kernel_route> there;
  if (!has_routes()) {
    doubtful_ = false;
  } else if (kernel_.read_routes(there) == 0) {
    routes_.take_all(there);
    doubtful_ = false;
  } else {
    close();
  }
  read_events();
  const std::uint64_t now = now_us();
  compare_at_us_ = now + (now - begun) * compare_part;
  audit_at_us_ = now + audit_us;
}

// --- What the keepers ask for --------------------------------------------------------------------

void netlink_network::carry_out(std::vector<route_change>& changes) {
  kernel_.carry_out(changes);
}

void netlink_network::tell(const std::string& owner, const std::string& text) {
  tell_(owner, text);
}

std::uint64_t netlink_network::now_us() const {
  return monotonic_us();
}

int netlink_network::set_up(std::uint32_t index, bool up) {
  return kernel_.set_up(index, up);
}

}  // namespace ot::trackpolicy
