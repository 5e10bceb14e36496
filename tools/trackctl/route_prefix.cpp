// Checks of prefixes and VRF names.
#include "tools/trackctl/route_prefix.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>

#include "platform/ipv4.h"
#include "tools/trackctl/failure.h"
#include "tools/trackctl/names.h"

namespace ot::trackctl {
namespace {

constexpr std::uint32_t longest_prefix = 32;
constexpr std::size_t longest_vrf_name = 31;

[[noreturn]] void refuse(const std::string& text) {
  throw failure(exit_usage, text);
}

std::string address_text(std::uint32_t address) {
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address, text, sizeof text);
  return text;
}

}  // namespace

route_prefix parse_route_prefix(const std::string& text) {
  const auto slash = text.find('/');
  in_addr parsed{};
  if (slash == std::string::npos ||
      inet_pton(AF_INET, text.substr(0, slash).c_str(), &parsed) != 1) {
    refuse("route \"" + text + "\" is not an IPv4 prefix; give one such as 192.0.2.0/24");
  }
  const std::string length_text = text.substr(slash + 1);
  const std::uint32_t length =
      parse_number("prefix length", length_text, {.unit = "", .least = 0, .most = longest_prefix});
  route_prefix prefix{parsed.s_addr, ipv4_prefixlen2mask(length)};
  const std::uint32_t network = prefix.address & prefix.mask;
  if (network != prefix.address) {
    refuse("route \"" + text + "\" has host bits set; the network is " + address_text(network) +
           "/" + length_text);
  }
  if (prefix.address == 0) {
    refuse("route \"" + text +
           "\" cannot be tracked: the FIB takes no registration for address 0.0.0.0; track a "
           "prefix behind it instead");
  }
  return prefix;
}

void check_vrf_name(const std::string& name) {
  if (name.empty()) {
    refuse("the VRF name is empty; give one as `ip vrf` lists it, or leave --vrf out");
  }
  if (name.size() > longest_vrf_name) {
    refuse("VRF name \"" + name + "\" has " + std::to_string(name.size()) +
           " characters; at most 31 are kept");
  }
  const bool bad = std::any_of(name.begin(), name.end(), [](unsigned char character) {
    return character == '/' || std::isspace(character) != 0;
  });
  if (bad) {
    refuse("VRF name \"" + name + "\" has a '/' or a blank; give one as `ip vrf` lists it");
  }
}

}  // namespace ot::trackctl
