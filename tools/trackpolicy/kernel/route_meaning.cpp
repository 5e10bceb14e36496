// From names to numbers, and from the kernel's numbers to words.
#include "tools/trackpolicy/kernel/route_meaning.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace ot::trackpolicy {
namespace {

constexpr std::uint32_t ipv6_default_metric = 1024;

struct refusal_row {
  int error;
  const char* text;
};
constexpr std::array refusal_rows{
    refusal_row{EEXIST, "somebody else's route to the same destination, with the same metric"},
    refusal_row{EPERM, "trackpolicy has not the right to change routes (CAP_NET_ADMIN)"},
    refusal_row{ENETDOWN, "the interface is down"},
    refusal_row{ENETUNREACH, "the gateway is on none of the router's networks"},
    refusal_row{EHOSTUNREACH, "the gateway is on none of the router's networks"},
    refusal_row{ENODEV, "there is no such interface"},
};

}  // namespace

std::optional<kernel_route> meaning_of(const route& what, const link_table& links,
                                       std::string& ret_problem) {
  kernel_route made;
  const std::uint8_t family = family_of(what);
  made.key = {.to = what.to, .length = what.length, .table = what.table, .metric = what.metric};
  made.key.to.family = family;
  if (made.key.metric == 0 && family == AF_INET6) {
    made.key.metric = ipv6_default_metric;
  }
  made.via = what.via;
  made.source = what.source;
  made.mtu = what.mtu;
  made.onlink = what.onlink;
  if (!what.vrf.empty()) {
    const link_fact* const vrf = links.find(what.vrf);
    if (vrf == nullptr || vrf->vrf_table == 0) {
      ret_problem = "there is no VRF \"" + what.vrf + '"';
      return std::nullopt;
    }
    made.key.table = vrf->vrf_table;
  }
  if (!what.dev.empty()) {
    const link_fact* const link = links.find(what.dev);
    if (link == nullptr) {
      ret_problem = "there is no interface \"" + what.dev + '"';
      return std::nullopt;
    }
    made.ifindex = link->index;
  }
  return made;
}

std::string refusal_text(int error, const std::string& kernel_text) {
  const auto* const known =
      std::find_if(refusal_rows.begin(), refusal_rows.end(),
                   [error](const refusal_row& each) { return each.error == error; });
  std::string text = std::generic_category().message(error);
  if (known != refusal_rows.end()) {
    text += std::string(": ") + known->text;
  }
  return text + (kernel_text.empty() ? "" : " (the kernel: " + kernel_text + ')');
}

}  // namespace ot::trackpolicy
