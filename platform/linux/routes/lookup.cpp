// Looking routes up. The kernel is asked as if it had a packet to send, which takes about a
// microsecond. It does not look into one table only: policy rules decide which tables it asks, an
// address of the router's own is found before all of them, and a VRF without a match falls through
// to the main table. So an answer counts only when it is from the wanted table. Where another one
// hides that, the table is read and matched here, once for all look-ups until the next change.
#include "platform/linux/routes/lookup.h"

#include <arpa/inet.h>
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
constexpr std::uint32_t host_length = 32;
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

// The kernel keeps the local and the main table as one until the first rule is added, and then says
// main of both.
bool may_be_of_local_table(const route_record& answer, const vrf_device& vrf) noexcept {
  return route_is_kept_for_addresses(answer) || (is_default(vrf) && answer.type == RTN_LOCAL);
}

}  // namespace

int route_lookup::open() noexcept {
  forget_names();
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
  forget_names();
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

int route_lookup::ask(std::uint32_t address, const vrf_device& vrf,
                      std::optional<route_record>* ret) noexcept {
  ret->reset();
  netlink_request request;
  nlmsghdr* message = mnl_nlmsg_put_header(request.bytes);
  message->nlmsg_type = RTM_GETROUTE;
  auto* route = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(rtmsg)));
  *route = rtmsg{};
  route->rtm_family = AF_INET;
  route->rtm_dst_len = 32;
  route->rtm_flags = RTM_F_FIB_MATCH | RTM_F_LOOKUP_TABLE;
  mnl_attr_put_u32(message, RTA_DST, address);
  if (!is_default(vrf)) {
    mnl_attr_put_u32(message, RTA_OIF, vrf.id);
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

int route_lookup::find(const fib_prefix& wanted, rtclient_result* ret) noexcept {
  *ret = rtclient_result{};
  const vrf_device* vrf = the_vrf_devices().with_table_id(wanted.table);
  if (vrf == nullptr) {
    return status_ok;
  }
  if (is_default(*vrf) && hidden_by_rules().local) {
    return find_in_contents(wanted.address, *vrf, ret);
  }
  std::optional<route_record> answer;
  int status = ask(wanted.address, *vrf, &answer);
  const bool own =
      answer && route_is_own_address(*answer) && (answer->table == vrf->table || is_default(*vrf));
  if (own) {
    ret->own_address = true;
    ret->first_hop = name_of(answer->out_ifindex);
    if (wanted.length == host_length) {
      return status_ok;
    }
    // Every route to both of two neighbouring addresses is found by the other one.
    status = ask(wanted.address ^ htonl(1), *vrf, &answer);
  }
  if (status != status_ok) {
    return status;
  }
  switch (says_about(answer, *vrf, own)) {
    case table_state::answered:
      take(*answer, ret);
      return status_ok;
    case table_state::without_match:
      return status_ok;
    default:
      return find_in_contents(wanted.address, *vrf, ret);
  }
}

// What the kernel's answer, or that it had none, says about the VRF's table. A route to the
// neighbour alone says nothing of the address that was meant.
route_lookup::table_state route_lookup::says_about(const std::optional<route_record>& answer,
                                                   const vrf_device& vrf,
                                                   bool of_neighbour) noexcept {
  if (answer && answer->table == vrf.table && !may_be_of_local_table(*answer, vrf)) {
    return of_neighbour && answer->length == host_length ? table_state::hidden
                                                         : table_state::answered;
  }
  const bool by_address = answer && (answer->table == vrf.table || answer->table == local_table);
  return by_address || may_be_hidden(vrf) ? table_state::hidden : table_state::without_match;
}

int route_lookup::find_in_contents(std::uint32_t address, const vrf_device& vrf,
                                   rtclient_result* ret) noexcept {
  const table_contents* wanted = nullptr;
  const table_contents* local = nullptr;
  int status = contents_of(vrf.table, &wanted);
  if (status == status_ok && is_default(vrf)) {
    status = contents_of(local_table, &local);
  }
  if (status != status_ok) {
    return status;
  }
  // A VRF's addresses are in its table, which may be the main one.
  const route_record* own = wanted->own_address(address);
  if (own == nullptr && local != nullptr) {
    own = local->own_address(address);
  }
  if (own != nullptr) {
    ret->own_address = true;
    ret->first_hop = name_of(own->out_ifindex);
  }
  const std::uint32_t longest = ret->own_address ? host_length - 1 : host_length;
  if (const route_record* route = wanted->longest_match(address, longest)) {
    take(*route, ret);
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

hidden_tables route_lookup::hidden_by_rules() noexcept {
  if (!hidden_) {
    hidden_tables now;
    if (policy_rules_read(requests_, &now) != 0) {
      return now;
    }
    hidden_ = now;
  }
  return *hidden_;
}

// A VRF whose device is disabled forwards nothing, whatever its table holds.
bool route_lookup::may_be_hidden(const vrf_device& vrf) noexcept {
  const hidden_tables hidden = hidden_by_rules();
  return is_default(vrf) ? hidden.main : hidden.vrfs && is_up(vrf.id);
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
