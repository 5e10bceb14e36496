// The policy rules, as far as they decide whether the kernel's answer to a look-up says something
// about the table that is wanted. The kernel asks one table after the other as the rules tell it,
// and the first that has a match answers.
#pragma once

#include <linux/netlink.h>

#include "platform/linux/netlink/socket.h"

namespace ot {

// Whether a table may be hidden: by a rule before it that finds a match elsewhere, or refuses.
struct hidden_tables {
  bool local = true;  // the router's own addresses, from a look-up in the default VRF
  bool main = true;   // from the same
  bool vrfs = true;   // from a look-up in a VRF
};

// Reads the rules. 0 or an errno value, and then all may be hidden.
int policy_rules_read(netlink_socket& requests, hidden_tables* ret) noexcept;

// The same from the rules' messages, in their order.
class policy_rules_reader {
 public:
  void take(const nlmsghdr& message) noexcept;
  [[nodiscard]] hidden_tables result() const noexcept;

 private:
  hidden_tables hidden_{false, false, false};
  hidden_tables unseen_;  // no rule yet leads there
};

}  // namespace ot
