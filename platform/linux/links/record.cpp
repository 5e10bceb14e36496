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
#include <optional>
#include <string_view>

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

// What a link message tells; the rest is unset.
struct told {
  std::optional<std::string_view> name;
  std::optional<std::uint8_t> operstate;
  std::optional<std::string_view> member_of;  // the kind of its master, as far as it has a kind
  std::optional<std::uint8_t> bond_part;
  bool master = false;
  bool mtu = false;  // in each of the kernel's messages but the short ones
};

// From IFLA_LINKINFO.
void read_membership(netlink_bytes link_info, told& tells) noexcept {
  netlink_walk(link_info, [&](std::uint16_t type, netlink_bytes value) {
    if (type == IFLA_INFO_SLAVE_KIND) {
      tells.member_of = netlink_text(value);
    } else if (type == IFLA_INFO_SLAVE_DATA) {
      netlink_walk(value, [&](std::uint16_t slave_type, netlink_bytes slave_value) {
        if (slave_type == IFLA_BOND_SLAVE_STATE && !slave_value.empty()) {
          tells.bond_part = netlink_number<std::uint8_t>(slave_value);
        }
      });
    }
  });
}

told read_attributes(const nlmsghdr& message) noexcept {
  told tells;
  netlink_walk(netlink_attributes<ifinfomsg>(message),
               [&tells](std::uint16_t type, netlink_bytes value) {
                 if (type == IFLA_IFNAME && !netlink_text(value).empty()) {
                   tells.name = netlink_text(value);
                 } else if (type == IFLA_OPERSTATE && !value.empty()) {
                   tells.operstate = netlink_number<std::uint8_t>(value);
                 } else if (type == IFLA_LINKINFO) {
                   read_membership(value, tells);
                 }
                 tells.master |= type == IFLA_MASTER;
                 tells.mtu |= type == IFLA_MTU;
               });
  return tells;
}

// A member of nothing has no master in a whole message; that a message has no membership in it says
// nothing. A bond's member that stands by has no redundancy.
void take_membership(const told& tells, link_record& link) noexcept {
  const bool alone = tells.mtu && !tells.master;
  if (!tells.member_of && !alone) {
    return;
  }
  link.of_vrf = tells.member_of == "vrf";
  if (tells.member_of != "bond") {
    link.redundancy = 1;
  } else if (tells.bond_part) {
    link.redundancy = *tells.bond_part == bond_slave_backup ? 0 : 1;
  }
}

}  // namespace

std::uint32_t link_message_index(const nlmsghdr& message) noexcept {
  if ((message.nlmsg_type != RTM_NEWLINK && message.nlmsg_type != RTM_DELLINK) ||
      message.nlmsg_len < NLMSG_LENGTH(sizeof(ifinfomsg))) {
    return 0;
  }
  const auto& header = *static_cast<const ifinfomsg*>(NLMSG_DATA(&message));
  const bool of_link = header.ifi_family == AF_UNSPEC && header.ifi_index > 0;
  return of_link ? static_cast<std::uint32_t>(header.ifi_index) : 0;
}

bool link_record_read(const nlmsghdr& message, const link_record* known,
                      link_record* ret) noexcept {
  const std::uint32_t ifindex = link_message_index(message);
  if (ifindex == 0 || message.nlmsg_type != RTM_NEWLINK) {
    return false;
  }
  const told tells = read_attributes(message);
  if (known == nullptr && (!tells.name || !tells.operstate)) {
    return false;
  }
  link_record link = known != nullptr ? *known : link_record{};
  link.ifindex = ifindex;
  if (tells.name) {
    link.name.assign(*tells.name);
  }
  link.operstate = tells.operstate.value_or(link.operstate);
  take_membership(tells, link);
  link.state =
      line_state(static_cast<const ifinfomsg*>(NLMSG_DATA(&message))->ifi_flags, link.operstate);
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
