// Looking routes up. The kernel is asked as if it had a packet to send, which takes about a
// microsecond. It does not look into one table only: rules come first, and a VRF without a match
// falls through to the main table. So the answer is taken only from the wanted table.
#include "platform/linux/routes/lookup.h"

#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>

#include <cerrno>
#include <optional>

#include "platform/common/vrf_requests.h"
#include "platform/ipv4.h"
#include "platform/linux/links/vrf_devices.h"
#include "platform/linux/netlink/attributes.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr std::uint32_t main_table = RT_TABLE_MAIN;
constexpr std::uint32_t local_table = RT_TABLE_LOCAL;
constexpr int loopback = 1;  // the ifindex, in every namespace
constexpr int no_route_errors[] = {ENETUNREACH, EHOSTUNREACH, EINVAL, EACCES, ENODEV};

bool means_no_route(int error) noexcept {
  for (const int code : no_route_errors) {
    if (code == error) {
      return true;
    }
  }
  return false;
}

nlmsghdr* route_request(netlink_request& request, std::uint16_t flags) noexcept {
  nlmsghdr* message = mnl_nlmsg_put_header(request.bytes);
  message->nlmsg_type = RTM_GETROUTE;
  message->nlmsg_flags = flags;
  auto* route = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(rtmsg)));
  *route = rtmsg{};
  route->rtm_family = AF_INET;
  return message;
}

rtmsg* header_of(nlmsghdr* message) noexcept {
  return static_cast<rtmsg*>(mnl_nlmsg_get_payload(message));
}

// The ifindex; 0 for the default VRF.
std::uint32_t vrf_device_of(std::uint32_t table) noexcept {
  const vrf_device* device = the_vrf_devices().with_table(table);
  return device == nullptr || device->id == default_vrf_id ? 0 : device->id;
}

// The default VRF's own addresses answer from the local table.
bool wanted(std::uint32_t table, std::uint32_t answer) noexcept {
  return answer == table || (table == main_table && answer == local_table);
}

bool contains(const route_record& route, std::uint32_t address) noexcept {
  return ((route.destination ^ address) & ipv4_prefixlen2mask(route.length)) == 0;
}

// A next hop that the kernel has marked dead, or whose link has no carrier, carries nothing.
constexpr unsigned not_carrying = RTNH_F_DEAD | RTNH_F_LINKDOWN;

bool forwards(unsigned type) noexcept {
  return type == RTN_UNICAST || type == RTN_LOCAL;
}

// The next hops of a multipath route: the first one's interface, and whether any carries.
void read_multipath(netlink_bytes hops, route_record& route) noexcept {
  bool first = true;
  route.usable = false;
  rtnexthop hop;
  while (hops.size() >= sizeof hop) {
    std::memcpy(&hop, hops.data(), sizeof hop);
    if (hop.rtnh_len < sizeof hop || hop.rtnh_len > hops.size()) {
      return;
    }
    if (first) {
      route.out_ifindex = static_cast<std::uint32_t>(hop.rtnh_ifindex);
      first = false;
    }
    route.usable |= (hop.rtnh_flags & not_carrying) == 0;
    const std::size_t step = RTNH_ALIGN(static_cast<std::size_t>(hop.rtnh_len));
    hops = hops.subspan(std::min(step, hops.size()));
  }
}

}  // namespace

bool route_record_read(const nlmsghdr& message, route_record* ret) noexcept {
  const bool route_message =
      message.nlmsg_type == RTM_NEWROUTE || message.nlmsg_type == RTM_DELROUTE;
  if (!route_message || message.nlmsg_len < NLMSG_LENGTH(sizeof(rtmsg))) {
    return false;
  }
  const auto& header = *static_cast<const rtmsg*>(NLMSG_DATA(&message));
  if (header.rtm_family != AF_INET) {
    return false;
  }
  route_record route;
  route.length = header.rtm_dst_len;
  route.table = header.rtm_table;
  route.usable = (header.rtm_flags & not_carrying) == 0;
  netlink_bytes multipath;
  netlink_walk(netlink_attributes<rtmsg>(message), [&](std::uint16_t type, netlink_bytes value) {
    if (type == RTA_DST) {
      route.destination = netlink_number<std::uint32_t>(value);
    } else if (type == RTA_TABLE) {
      route.table = netlink_number<std::uint32_t>(value);
    } else if (type == RTA_OIF) {
      route.out_ifindex = netlink_number<std::uint32_t>(value);
    } else if (type == RTA_MULTIPATH) {
      multipath = value;
    }
  });
  if (!multipath.empty()) {
    read_multipath(multipath, route);
  }
  route.usable = route.usable && forwards(header.rtm_type);
  *ret = route;
  return true;
}

int route_lookup::open() noexcept {
  names_.fill({});
  if (const int status = requests_.open_requests(); status != 0) {
    return status;
  }
  // Lets the kernel filter a dump by table.
  const int on = 1;
  setsockopt(requests_.fd(), SOL_NETLINK, NETLINK_GET_STRICT_CHK, &on, sizeof on);
  return 0;
}

// Questions about links wait for the lock that a change holds from its first event to its end.
void route_lookup::await_change() noexcept {
  netlink_request request;
  nlmsghdr* message = mnl_nlmsg_put_header(request.bytes);
  message->nlmsg_type = RTM_GETLINK;
  auto* link = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)));
  *link = ifinfomsg{};
  link->ifi_index = loopback;
  mnl_attr_put_u32(message, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
  requests_.ask(
      message, [](void*, const nlmsghdr&) {}, nullptr);
  names_.fill({});
}

int route_lookup::find(std::uint32_t address, std::uint32_t table, rtclient_result* ret) noexcept {
  *ret = rtclient_result{};
  netlink_request request;
  nlmsghdr* message = route_request(request, 0);
  header_of(message)->rtm_dst_len = 32;
  header_of(message)->rtm_flags = RTM_F_FIB_MATCH | RTM_F_LOOKUP_TABLE;
  mnl_attr_put_u32(message, RTA_DST, address);
  if (const std::uint32_t vrf = vrf_device_of(table); vrf != 0) {
    mnl_attr_put_u32(message, RTA_OIF, vrf);
  }
  std::optional<route_record> answer;
  const int status = requests_.ask(
      message,
      [](void* to, const nlmsghdr& part) {
        route_record route;
        if (route_record_read(part, &route)) {
          *static_cast<std::optional<route_record>*>(to) = route;
        }
      },
      &answer);
  if (status != 0) {
    return means_no_route(status) ? status_ok : status;
  }
  if (!answer.has_value()) {
    return status_ok;
  }
  if (wanted(table, answer->table)) {
    take(*answer, ret);
  } else if (answer->table == local_table) {
    return find_in_dump(address, table, ret);
  }
  return status_ok;
}

void route_lookup::take(const route_record& route, rtclient_result* ret) noexcept {
  if (!route.usable) {
    return;
  }
  ret->route_found = true;
  ret->prefix_length = route.length;
  ret->first_hop = name_of(route.out_ifindex);
}

// The kernel takes longer to name an interface than to find a route.
const fixed_text<64>& route_lookup::name_of(std::uint32_t ifindex) noexcept {
  named_interface& known = names_[ifindex % names_.size()];
  if (known.ifindex != ifindex || known.name.empty()) {
    char name[IF_NAMESIZE] = "";
    known.ifindex = ifindex;
    known.name.assign(if_indextoname(ifindex, name) == nullptr ? "" : name);
  }
  return known.name;
}

// An address of the router's own hides the table behind the local one.
int route_lookup::find_in_dump(std::uint32_t address, std::uint32_t table,
                               rtclient_result* ret) noexcept {
  struct search {
    std::uint32_t address;
    std::uint32_t table;
    std::optional<route_record> best;
  };
  search looking{address, table, {}};
  netlink_request request;
  nlmsghdr* message = route_request(request, NLM_F_DUMP);
  mnl_attr_put_u32(message, RTA_TABLE, table);
  const int status = requests_.request(
      message,
      [](void* context, const nlmsghdr& part) {
        auto& to = *static_cast<search*>(context);
        route_record route;
        if (!route_record_read(part, &route) || route.table != to.table ||
            !contains(route, to.address)) {
          return;
        }
        if (!to.best.has_value() || route.length > to.best->length) {
          to.best = route;
        }
      },
      &looking);
  if (status != 0 && status != EINTR) {
    return status == ENOENT ? status_ok : status;
  }
  if (looking.best.has_value()) {
    take(*looking.best, ret);
  }
  return status_ok;
}

}  // namespace ot
