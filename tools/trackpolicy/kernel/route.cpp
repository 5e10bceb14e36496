// Addresses and routes as texts.
#include "tools/trackpolicy/kernel/route.h"

#include <arpa/inet.h>

namespace ot::trackpolicy {
namespace {

constexpr std::array<std::uint8_t, 2> families{AF_INET, AF_INET6};

}  // namespace

std::size_t size_of_address(std::uint8_t family) noexcept {
  return family == AF_INET ? sizeof(in_addr) : sizeof(in6_addr);
}

bool parse_address(std::string_view text, ip_address* ret) {
  const std::string whole(text);
  for (const std::uint8_t family : families) {
    ip_address made;
    made.family = family;
    if (inet_pton(family, whole.c_str(), made.bytes.data()) == 1) {
      *ret = made;
      return true;
    }
  }
  return false;
}

std::string text_of(const ip_address& address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  (void)inet_ntop(address.family, address.bytes.data(), text.data(), text.size());
  return text.data();
}

ip_address masked(const ip_address& address, std::uint8_t length) noexcept {
  ip_address made = address;
  for (std::size_t i = 0; i < made.bytes.size(); ++i) {
    const std::size_t before = i * 8;
    const std::size_t kept = length <= before ? 0 : length - before;
    if (kept < 8) {
      made.bytes[i] = static_cast<std::uint8_t>(made.bytes[i] & (0xff00U >> kept));
    }
  }
  return made;
}

std::uint8_t family_of(const route& what) noexcept {
  const std::uint8_t family = what.to.family != 0 ? what.to.family : what.via.family;
  return family != 0 ? family : static_cast<std::uint8_t>(AF_INET);
}

std::string text_of(const route& what) {
  std::string text = what.length == 0 ? std::string("default")
                                      : text_of(what.to) + '/' + std::to_string(what.length);
  const auto add = [&text](bool said, const char* word, const std::string& value) {
    if (said) {
      text += std::string(" ") + word + ' ' + value;
    }
  };
  add(what.via.family != 0, "via", text_of(what.via));
  add(!what.dev.empty(), "dev", what.dev);
  add(what.source.family != 0, "src", text_of(what.source));
  add(what.metric != 0, "metric", std::to_string(what.metric));
  add(what.table != main_table, "table", std::to_string(what.table));
  add(!what.vrf.empty(), "vrf", what.vrf);
  add(what.mtu != 0, "mtu", std::to_string(what.mtu));
  return text + (what.onlink ? " onlink" : "");
}

}  // namespace ot::trackpolicy
