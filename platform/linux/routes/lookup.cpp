// Looking routes up. The kernel is asked as if it had a packet to send (questions.cpp). It does not
// look into one table only: policy rules decide which tables it asks, an address of the router's
// own is found before all of them, and a VRF without a match falls through to the main table. So an
// answer counts only when it is from the wanted table. Where another one hides that, the table is
// read and matched here, once for all look-ups until the next change.
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

int route_lookup::find(const fib_prefix& wanted, fib_answer* ret) noexcept {
  *ret = fib_answer{};
  const vrf_device* vrf = the_vrf_devices().with_table_id(wanted.table);
  if (vrf == nullptr) {
    return status_ok;
  }
  if (!is_default(*vrf)) {
    ret->links.add(vrf->id);
  }
  if (is_default(*vrf) && hidden_by_rules().local) {
    return find_in_contents(wanted.address, *vrf, ret);
  }
  std::optional<route_record> answer;
  int status = ask(wanted.address, *vrf, &answer);
  const bool own =
      answer && route_is_own_address(*answer) && (answer->table == vrf->table || is_default(*vrf));
  if (own) {
    take_own(*answer, ret);
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
    case table_state::unknown:
      return no_memory;
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
  return by_address ? table_state::hidden : without_answer(vrf);
}

int route_lookup::find_in_contents(std::uint32_t address, const vrf_device& vrf,
                                   fib_answer* ret) noexcept {
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
    take_own(*own, ret);
  }
  const std::uint32_t longest = ret->result.own_address ? host_length - 1 : host_length;
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
route_lookup::table_state route_lookup::without_answer(const vrf_device& vrf) noexcept {
  const hidden_tables rules = hidden_by_rules();
  if (!(is_default(vrf) ? rules.main : rules.vrfs)) {
    return table_state::without_match;
  }
  const std::optional<bool> forwards = is_default(vrf) ? true : is_up(vrf.id);
  if (!forwards) {
    return table_state::unknown;
  }
  return *forwards ? table_state::hidden : table_state::without_match;
}

void route_lookup::take(const route_record& route, fib_answer* ret) noexcept {
  ret->links.add(route.many_links ? 0 : route.out_ifindex);
  if (!route.usable) {
    return;
  }
  ret->result.route_found = true;
  ret->result.prefix_length = route.length;
  ret->result.first_hop = name_of(route.out_ifindex);
}

void route_lookup::take_own(const route_record& route, fib_answer* ret) noexcept {
  ret->links.add(route.out_ifindex);
  ret->result.own_address = true;
  ret->result.first_hop = name_of(route.out_ifindex);
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
