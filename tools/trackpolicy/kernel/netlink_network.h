// The kernel's routes and interfaces: what there is, what changes, and what is asked for.
//
// Nothing is opened before a policy asks for something, unless what an earlier trackpolicy has left
// behind is to be looked for. One of these belongs in a network namespace: what another one with
// policies has put there would count as left behind.
#pragma once

#include <systemd/sd-event.h>

#include <functional>
#include <string>
#include <vector>

#include "tools/daemon/loop.h"
#include "tools/trackpolicy/foundations.h"
#include "tools/trackpolicy/kernel/kernel_access.h"
#include "tools/trackpolicy/kernel/link_keeper.h"
#include "tools/trackpolicy/kernel/messages.h"
#include "tools/trackpolicy/kernel/network.h"
#include "tools/trackpolicy/kernel/route_keeper.h"

namespace ot::trackpolicy {

class netlink_network : public network, private route_kernel, private link_kernel {
 public:
  // Gets what is to be said about a policy.
  using tell_fn = std::function<void(const std::string& owner, const std::string& text)>;

  // `folder`: where it is remembered what was done.
  netlink_network(sd_event* loop, const std::string& folder, tell_fn tell_operator);

  void keep_route(const std::string& owner, const route& what, wish wanted) override;
  void forget_route(const std::string& owner) override;
  [[nodiscard]] outcome route_outcome(const std::string& owner) const override;
  void keep_link(const std::string& owner, const std::string& track, const std::string& interface,
                 wish up) override;
  void forget_link(const std::string& owner) override;
  [[nodiscard]] outcome link_outcome(const std::string& owner) const override;

  // What tracks stand on, as was last found out.
  void take_foundations(foundations tracks);

 private:
  void carry_out(std::vector<route_change>& changes) override;
  [[nodiscard]] std::uint64_t now_us() const override;
  int set_up(std::uint32_t index, bool up) override;
  std::string remember(const held_links& held) override;
  void tell(const std::string& owner, const std::string& text) override;

  void recall();
  void remember_routes();
  void wake(std::uint64_t when_us);
  void turn();
  [[nodiscard]] bool needed() const;
  [[nodiscard]] bool has_routes() const;
  bool open();
  void close();
  void read_events();
  void take_event(const nlmsghdr& message);
  void take_link(const link_fact& link, bool gone);
  void take_route(const route_news& what, bool by_us);
  void compare();

  sd_event* loop_;
  std::string links_path_;
  std::string routes_path_;
  tell_fn tell_;
  route_keeper routes_;
  link_keeper link_keeper_;
  link_table links_;
  foundations tracks_;
  bool left_behind_ = false;  // an earlier trackpolicy had routes
  bool open_ = false;
  std::string trouble_;              // why the kernel cannot be asked
  bool doubtful_ = true;             // something happened that the kernel does not tell
  bool try_again_ = false;           // what was refused may be taken now
  std::uint64_t compare_at_us_ = 0;  // not before
  std::uint64_t audit_at_us_ = 0;
  std::uint64_t retry_at_us_ = UINT64_MAX;
  std::uint64_t wake_at_us_ = UINT64_MAX;
  kernel_access kernel_;
  loop_source timer_;
};

}  // namespace ot::trackpolicy
