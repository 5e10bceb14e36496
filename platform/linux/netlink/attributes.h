// A walk over the attributes of a netlink message.
#pragma once

#include <linux/netlink.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

namespace ot {

using netlink_bytes = std::span<const std::byte>;

// The part of a message's payload behind its fixed header of type `Header`; empty when the message
// is too short.
template <typename Header>
netlink_bytes netlink_attributes(const nlmsghdr& message) noexcept {
  constexpr std::size_t before = NLMSG_HDRLEN + NLMSG_ALIGN(sizeof(Header));
  if (message.nlmsg_len < before) {
    return {};
  }
  return {reinterpret_cast<const std::byte*>(&message) + before, message.nlmsg_len - before};
}

// Calls visit(type, value) for each attribute of `attributes`; nested ones are walked by the
// visitor. Stops at the first malformed one.
template <typename Visit>
void netlink_walk(netlink_bytes attributes, Visit&& visit) {
  nlattr header;
  while (attributes.size() >= sizeof header) {
    std::memcpy(&header, attributes.data(), sizeof header);
    if (header.nla_len < NLA_HDRLEN || header.nla_len > attributes.size()) {
      return;
    }
    visit(static_cast<std::uint16_t>(header.nla_type & NLA_TYPE_MASK),
          attributes.subspan(NLA_HDRLEN, header.nla_len - static_cast<std::size_t>(NLA_HDRLEN)));
    const std::size_t step = NLA_ALIGN(static_cast<std::size_t>(header.nla_len));
    attributes = attributes.subspan(std::min(step, attributes.size()));
  }
}

// The value as a number of type T; 0 when it is shorter.
template <typename T>
T netlink_number(netlink_bytes value) noexcept {
  T number{};
  if (value.size() >= sizeof number) {
    std::memcpy(&number, value.data(), sizeof number);
  }
  return number;
}

// The value as a text, without its terminator.
inline std::string_view netlink_text(netlink_bytes value) noexcept {
  const std::string_view text(reinterpret_cast<const char*>(value.data()), value.size());
  return text.substr(0, text.find('\0'));
}

}  // namespace ot
