// Looking at and choosing among the interfaces' addresses.
#include "platform/linux/bfd/frr_vty/addresses.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <algorithm>
#include <memory>
#include <string_view>

namespace ot::bfd::vty {
namespace {

std::uint32_t ipv4_of(const sockaddr* address) noexcept {
  return address == nullptr || address->sa_family != AF_INET
             ? 0
             : reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr;
}

bool by_interface(const interface_address& a, const interface_address& b) noexcept {
  return a.interface.view() < b.interface.view();
}

// The better, the higher.
unsigned fitness(const interface_address& own, std::uint32_t destination) noexcept {
  const bool direct = own.peer == destination ||
                      (own.mask != 0 && (own.address & own.mask) == (destination & own.mask));
  return direct ? 2 : 1;
}

}  // namespace

void look_at_addresses(std::vector<interface_address>* ret) {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) {
    return;
  }
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owned{list, freeifaddrs};
  std::vector<interface_address> found;
  for (const ifaddrs* each = list; each != nullptr; each = each->ifa_next) {
    const std::string_view label = each->ifa_name;
    const std::string_view name = label.substr(0, label.find(':'));
    const std::uint32_t address = ipv4_of(each->ifa_addr);
    if (address != 0 && name.size() < interface_name::capacity) {
      found.push_back(
          {interface_name{name}, address, ipv4_of(each->ifa_netmask), ipv4_of(each->ifa_dstaddr)});
    }
  }
  std::stable_sort(found.begin(), found.end(), by_interface);
  ret->swap(found);
}

std::uint32_t choose_address(std::span<const interface_address> addresses,
                             const session_config& session, std::uint32_t present) noexcept {
  if (session.source != 0) {
    return session.source;
  }
  std::uint32_t best = present;
  unsigned best_fitness = 0;
  const interface_address wanted{session.key.interface};
  const auto [begin, end] =
      std::equal_range(addresses.begin(), addresses.end(), wanted, by_interface);
  for (const interface_address& each : std::span{begin, end}) {
    const unsigned fits = fitness(each, session.key.destination);
    if (fits > best_fitness || (fits == best_fitness && each.address == present)) {
      best = each.address;
      best_fitness = fits;
    }
  }
  return best;
}

}  // namespace ot::bfd::vty
