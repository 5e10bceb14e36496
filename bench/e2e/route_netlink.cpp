// Route messages by libmnl: one request, acknowledged, and the reading of the IPv4 route group.
#include "bench/e2e/route_netlink.h"

#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <stdexcept>
#include <string>

namespace ot::bench {
namespace {

std::uint32_t destination(const nlmsghdr* message) {
  const auto* attribute =
      static_cast<const nlattr*>(mnl_nlmsg_get_payload_offset(message, sizeof(rtmsg)));
  const auto* end = static_cast<const char*>(mnl_nlmsg_get_payload_tail(message));
  while (mnl_attr_ok(attribute, static_cast<int>(end - reinterpret_cast<const char*>(attribute)))) {
    if (mnl_attr_get_type(attribute) == RTA_DST) return mnl_attr_get_u32(attribute);
    attribute = mnl_attr_next(attribute);
  }
  return 0;
}

}  // namespace

route_prefix::route_prefix(const char* text) {
  const std::string whole(text);
  const std::size_t slash = whole.find('/');
  in_addr parsed{};
  if (slash == std::string::npos ||
      inet_pton(AF_INET, whole.substr(0, slash).c_str(), &parsed) != 1) {
    throw std::runtime_error("not a prefix: " + whole);
  }
  address = parsed.s_addr;
  length = static_cast<std::uint8_t>(std::stoul(whole.substr(slash + 1)));
}

route_listener::route_listener(const char* prefix)
    : prefix_(prefix), socket_(open_netlink(RTMGRP_IPV4_ROUTE, SOCK_NONBLOCK)) {}

std::optional<bool> route_listener::receive() {
  std::optional<bool> there;
  receive_messages(socket_.get(), [&](const nlmsghdr* message) {
    const auto* route = static_cast<const rtmsg*>(mnl_nlmsg_get_payload(message));
    if (route->rtm_dst_len == prefix_.length && destination(message) == prefix_.address) {
      there = message->nlmsg_type == RTM_NEWROUTE;
    }
  });
  return there;
}

route_switch::route_switch(const char* prefix, unsigned ifindex)
    : prefix_(prefix), ifindex_(ifindex), socket_(open_netlink(0, 0)) {}

void route_switch::set(bool there) {
  netlink_buffer data;
  nlmsghdr* message = mnl_nlmsg_put_header(data.data());
  message->nlmsg_type = there ? RTM_NEWROUTE : RTM_DELROUTE;
  message->nlmsg_flags = static_cast<std::uint16_t>(there ? NLM_F_CREATE | NLM_F_EXCL : 0);
  auto* route = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(rtmsg)));
  route->rtm_family = AF_INET;
  route->rtm_dst_len = prefix_.length;
  route->rtm_table = RT_TABLE_MAIN;
  route->rtm_protocol = there ? RTPROT_STATIC : RTPROT_UNSPEC;  // whoever made it
  route->rtm_scope = RT_SCOPE_LINK;
  route->rtm_type = RTN_UNICAST;
  mnl_attr_put_u32(message, RTA_DST, prefix_.address);
  mnl_attr_put_u32(message, RTA_OIF, ifindex_);
  request(socket_.get(), message, ++sequence_);
}

}  // namespace ot::bench
