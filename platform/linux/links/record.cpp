// Reading links. A link is up when it is switched on, has a carrier, and its operational state
// does not say otherwise (drivers that do not keep that state leave it unknown). The carrier
// attribute and the running and dormant flags say less than these three.
#include "platform/linux/links/record.h"

#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "platform/interface_manager.h"
#include "platform/linux/netlink/attributes.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr unsigned flag_lower_up = 1U << 16;  // IFF_LOWER_UP
// Operational states of the kernel (RFC 2863).
constexpr std::uint8_t operstate_unknown = 0;
constexpr std::uint8_t operstate_up = 6;
constexpr std::uint8_t bond_slave_backup = 1;

std::uint32_t line_state(unsigned flags, std::uint8_t operstate) noexcept {
  if ((flags & IFF_UP) == 0) {
    return ifm_state_admin_down;
  }
  const bool up =
      (flags & flag_lower_up) != 0 && (operstate == operstate_up || operstate == operstate_unknown);
  return up ? ifm_state_up : ifm_state_down;
}

// From IFLA_LINKINFO: 0 for a bond's member that stands by.
std::uint32_t redundancy(netlink_bytes link_info) noexcept {
  bool member_of_bond = false;
  bool backup = false;
  netlink_walk(link_info, [&](std::uint16_t type, netlink_bytes value) {
    if (type == IFLA_INFO_SLAVE_KIND) {
      member_of_bond = netlink_text(value) == "bond";
    } else if (type == IFLA_INFO_SLAVE_DATA) {
      netlink_walk(value, [&](std::uint16_t slave_type, netlink_bytes slave_value) {
        if (slave_type == IFLA_BOND_SLAVE_STATE) {
          backup = netlink_number<std::uint8_t>(slave_value) == bond_slave_backup;
        }
      });
    }
  });
  return member_of_bond && backup ? 0 : 1;
}

}  // namespace

bool link_record_read(const nlmsghdr& message, link_record* ret) noexcept {
  if (message.nlmsg_type != RTM_NEWLINK && message.nlmsg_type != RTM_DELLINK) {
    return false;
  }
  if (message.nlmsg_len < NLMSG_LENGTH(sizeof(ifinfomsg))) {
    return false;
  }
  const auto& header = *static_cast<const ifinfomsg*>(NLMSG_DATA(&message));
  if (header.ifi_family != AF_UNSPEC) {
    return false;
  }
  link_record link;
  link.ifindex = static_cast<std::uint32_t>(header.ifi_index);
  std::uint8_t operstate = operstate_unknown;
  netlink_walk(netlink_attributes<ifinfomsg>(message),
               [&](std::uint16_t type, netlink_bytes value) {
                 if (type == IFLA_IFNAME) {
                   link.name.assign(netlink_text(value));
                 } else if (type == IFLA_OPERSTATE) {
                   operstate = netlink_number<std::uint8_t>(value);
                 } else if (type == IFLA_LINKINFO) {
                   link.redundancy = redundancy(value);
                 }
               });
  link.state = line_state(header.ifi_flags, operstate);
  *ret = link;
  return true;
}

const link_record* link_cache::find(std::uint32_t ifindex) const noexcept {
  const auto at = std::ranges::lower_bound(links_, ifindex, {}, &link_record::ifindex);
  return at == links_.end() || at->ifindex != ifindex ? nullptr : &*at;
}

const link_record* link_cache::find(const char* name) const noexcept {
  const auto at = std::ranges::find_if(links_, [name](const link_record& link) {
    return std::strcmp(link.name.c_str(), name) == 0;
  });
  return at == links_.end() ? nullptr : &*at;
}

int link_cache::put(const link_record& link) noexcept {
  const auto at = std::ranges::lower_bound(links_, link.ifindex, {}, &link_record::ifindex);
  if (at != links_.end() && at->ifindex == link.ifindex) {
    *at = link;
    return status_ok;
  }
  try {
    links_.insert(at, link);
    return status_ok;
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
}

void link_cache::erase(std::uint32_t ifindex) noexcept {
  const auto at = std::ranges::lower_bound(links_, ifindex, {}, &link_record::ifindex);
  if (at != links_.end() && at->ifindex == ifindex) {
    links_.erase(at);
  }
}

}  // namespace ot
