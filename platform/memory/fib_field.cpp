#include "platform/memory/fib_field.h"

#include <arpa/inet.h>

#include "platform/ipv4.h"

namespace ot {
namespace {

constexpr std::uint32_t host_length = 32;

bool contains(const fib_prefix& prefix, std::uint32_t address) noexcept {
  return ((prefix.address ^ address) & ipv4_prefixlen2mask(prefix.length)) == 0;
}

}  // namespace

void fib_field::find(const fib_prefix& prefix, rtclient_result* ret) const {
  for (const auto& [route, first_hop] : routes) {
    const bool longer = !ret->route_found || route.length > ret->prefix_length;
    if (route.table == prefix.table && contains(route, prefix.address) && longer) {
      ret->route_found = true;
      ret->prefix_length = route.length;
      ret->first_hop.assign(first_hop);
    }
  }
  ret->own_address = own_addresses.count({prefix.table, prefix.address, host_length}) != 0;
}

fib_prefix field_prefix(std::uint32_t table, const char* address, std::uint32_t length) {
  in_addr parsed{};
  inet_pton(AF_INET, address, &parsed);
  return {table, parsed.s_addr, length};
}

}  // namespace ot
