// Looking routes up. The kernel is asked as if it had a packet to send, which takes about a
// microsecond. It does not look into one table only: policy rules decide which tables it asks, an
// address of the router's own is found before all of them, and a VRF without a match falls through
// to the main table. So an answer counts only when it is from the wanted table. Where another one
// hides that, the table is read and matched here, once for all look-ups until the next change.
#include "platform/linux/routes/lookup.h"

#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <new>

#include "platform/common/vrf_requests.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr std::uint32_t local_table = RT_TABLE_LOCAL;
constexpr std::uint32_t loopback = 1;  // the ifindex, in every namespace
constexpr int no_route_errors[] = {ENETUNREACH, EHOSTUNREACH, EINVAL, EACCES, ENODEV};

bool means_no_route(int error) noexcept {
  return std::find(std::begin(no_route_errors), std::end(no_route_errors), error) !=
         std::end(no_route_errors);
}

// The default VRF has no device.
bool is_default(const vrf_device& vrf) noexcept {
  return vrf.id == default_vrf_id;
}

}  // namespace

int route_lookup::open() noexcept {
  names_.fill({});
  forget_tables();
  forget_rules();
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
  is_up(loopback);
  names_.fill({});
}

bool route_lookup::is_up(std::uint32_t ifindex) noexcept {
  netlink_request request;
  nlmsghdr* message = mnl_nlmsg_put_header(request.bytes);
  message->nlmsg_type = RTM_GETLINK;
  auto* link = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)));
  *link = ifinfomsg{};
  link->ifi_index = static_cast<int>(ifindex);
  mnl_attr_put_u32(message, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
  unsigned flags = 0;
  requests_.ask(
      message,
      [](void* to, const nlmsghdr& answer) {
        if (answer.nlmsg_len >= NLMSG_LENGTH(sizeof(ifinfomsg))) {
          const auto& found = *static_cast<const ifinfomsg*>(NLMSG_DATA(&answer));
          *static_cast<unsigned*>(to) = found.ifi_flags;
        }
      },
      &flags);
  return (flags & IFF_UP) != 0;
}

int route_lookup::ask(std::uint32_t address, std::uint32_t vrf_device,
                      std::optional<route_record>* ret) noexcept {
  netlink_request request;
  nlmsghdr* message = mnl_nlmsg_put_header(request.bytes);
  message->nlmsg_type = RTM_GETROUTE;
  auto* route = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(rtmsg)));
  *route = rtmsg{};
  route->rtm_family = AF_INET;
  route->rtm_dst_len = 32;
  route->rtm_flags = RTM_F_FIB_MATCH | RTM_F_LOOKUP_TABLE;
  mnl_attr_put_u32(message, RTA_DST, address);
  if (vrf_device != 0) {
    mnl_attr_put_u32(message, RTA_OIF, vrf_device);
  }
  const int status = requests_.ask(
      message,
      [](void* to, const nlmsghdr& part) {
        route_record found;
        if (route_record_read(part, &found)) {
          *static_cast<std::optional<route_record>*>(to) = found;
        }
      },
      ret);
  return means_no_route(status) ? 0 : status;
}

int route_lookup::find(std::uint32_t address, std::uint32_t table_id,
                       rtclient_result* ret) noexcept {
  *ret = rtclient_result{};
  const vrf_device* vrf = the_vrf_devices().with_table_id(table_id);
  if (vrf == nullptr) {
    return status_ok;
  }
  std::optional<route_record> answer;
  if (const int status = ask(address, is_default(*vrf) ? 0 : vrf->id, &answer); status != 0) {
    return status;
  }
  if (answer && answer->table == vrf->table && !route_is_kept_for_addresses(*answer)) {
    take(*answer, ret);
    return status_ok;
  }
  const bool hidden_by_address =
      answer && (answer->table == vrf->table || answer->table == local_table);
  return hidden_by_address || may_be_hidden(*vrf) ? find_in_contents(address, *vrf, ret)
                                                  : status_ok;
}

int route_lookup::find_in_contents(std::uint32_t address, const vrf_device& vrf,
                                   rtclient_result* ret) noexcept {
  const table_contents* wanted = nullptr;
  int status = contents_of(vrf.table, &wanted);
  if (status != status_ok) {
    return status;
  }
  if (const route_record* route = wanted->longest_match(address)) {
    take(*route, ret);
  }
  const table_contents* addresses = wanted;
  if (is_default(vrf)) {
    status = contents_of(local_table, &addresses);
  }
  if (status != status_ok) {
    return status;
  }
  if (const route_record* own = addresses->own_address(address)) {
    ret->own_address = true;
    if (!ret->route_found) {
      ret->first_hop = name_of(own->out_ifindex);
    }
  }
  return status_ok;
}

int route_lookup::contents_of(std::uint32_t table, const table_contents** ret) noexcept try {
  const auto [it, is_new] = tables_.try_emplace(table);
  const int status = is_new ? it->second.read(requests_, table) : status_ok;
  has_read_tables_ |= is_new;
  if (status != status_ok) {
    tables_.erase(it);
    return status;
  }
  *ret = &it->second;
  return status_ok;
} catch (const std::bad_alloc&) {
  return no_memory;
}

// A VRF whose device is disabled forwards nothing, whatever its table holds.
bool route_lookup::may_be_hidden(const vrf_device& vrf) noexcept {
  if (!hidden_) {
    hidden_tables now;
    if (policy_rules_read(requests_, &now) != 0) {
      return true;
    }
    hidden_ = now;
  }
  return is_default(vrf) ? hidden_->main : hidden_->vrfs && is_up(vrf.id);
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

}  // namespace ot
