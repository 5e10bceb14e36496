// What the kernel's messages say of routes: what a policy can have made is plain, nothing else is.
#include "tools/trackpolicy/kernel/messages.h"

#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cstring>
#include <vector>

namespace ot::trackpolicy {
namespace {

class route_message : public testing::Test {
 protected:
  // The route that is told, of a message with what `put` adds.
  template <typename Put>
  std::vector<kernel_route> told(std::uint8_t family, Put put, unsigned flags = 0) {
    auto* const header = begin_message<rtmsg>(place_.data(), RTM_NEWROUTE, 0);
    header->rtm_family = family;
    header->rtm_type = RTN_UNICAST;
    header->rtm_protocol = route_protocol;
    header->rtm_flags = flags;
    put(message_at(place_.data()));
    route_news news;
    return read_route(*message_at(place_.data()), &news) ? news.routes
                                                         : std::vector<kernel_route>{};
  }
  template <typename Put>
  bool is_plain(Put put) {
    const auto routes = told(AF_INET, put);
    return routes.size() == 1 && routes[0].plain;
  }
  bool has_plain_metric(std::uint16_t type) {
    return is_plain([type](nlmsghdr* message) {
      nlattr* const metrics = mnl_attr_nest_start(message, RTA_METRICS);
      mnl_attr_put_u32(message, type, 1400);
      mnl_attr_nest_end(message, metrics);
    });
  }

 private:
  alignas(nlmsghdr) std::array<char, message_room> place_{};
};

const auto nothing = [](nlmsghdr* /*message*/) {};

TEST_F(route_message, tells_a_route_and_no_copy_that_the_kernel_keeps_of_one) {
  EXPECT_EQ(told(AF_INET, nothing).size(), 1U);
  EXPECT_TRUE(told(AF_INET6, nothing, RTM_F_CLONED).empty());
  EXPECT_TRUE(told(AF_MPLS, nothing).empty());
}

TEST_F(route_message, of_a_route_that_no_policy_can_have_made_is_not_plain) {
  const auto number = [](std::uint16_t type) {
    return [type](nlmsghdr* message) { mnl_attr_put_u32(message, type, 7); };
  };
  EXPECT_TRUE(is_plain(number(RTA_PRIORITY)));
  for (const std::uint16_t type : {RTA_NH_ID, RTA_ENCAP, RTA_VIA, RTA_FLOW}) {
    EXPECT_FALSE(is_plain(number(type))) << type;
  }
  EXPECT_TRUE(has_plain_metric(RTAX_MTU));
  for (const std::uint16_t type : {RTAX_LOCK, RTAX_ADVMSS, RTAX_INITCWND, RTAX_QUICKACK}) {
    EXPECT_FALSE(has_plain_metric(type)) << type;
  }
}

TEST_F(route_message, of_several_next_hops_of_ipv6_is_as_many_routes) {
  const auto routes = told(AF_INET6, [](nlmsghdr* message) {
    nlattr* const hops = mnl_attr_nest_start(message, RTA_MULTIPATH);
    for (const int index : {3, 4}) {
      rtnexthop hop{};
      hop.rtnh_len = sizeof hop;
      hop.rtnh_ifindex = index;
      hop.rtnh_flags = index == 3 ? RTNH_F_ONLINK : 0U;
      std::memcpy(mnl_nlmsg_get_payload_tail(message), &hop, sizeof hop);
      message->nlmsg_len += sizeof hop;
    }
    mnl_attr_nest_end(message, hops);
  });
  ASSERT_EQ(routes.size(), 2U);
  EXPECT_EQ(routes[0].ifindex, 3U);
  EXPECT_TRUE(routes[0].onlink && routes[0].plain);
  EXPECT_EQ(routes[1].ifindex, 4U);
  EXPECT_FALSE(routes[1].onlink);
}

}  // namespace
}  // namespace ot::trackpolicy
