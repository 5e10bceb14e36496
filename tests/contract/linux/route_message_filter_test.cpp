// Which messages about routes the kernel sends us at all.
#include "platform/linux/routes/message_filter.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "platform/ipv4.h"
#include "platform/linux/netlink/socket.h"
#include "platform/linux/routes/record.h"
#include "tests/contract/linux/network_namespace.h"
#include "tests/support/seeds.h"

namespace ot::testing {
namespace {

address_range range_of(std::uint32_t address, std::uint32_t length) {
  const std::uint32_t mask = ntohl(ipv4_prefixlen2mask(length));
  return {address & mask, address | ~mask};
}

bool meet(const address_range& a, const address_range& b) {
  return a.first <= b.last && b.first <= a.last;
}

bool meets_any(const std::vector<address_range>& ranges, const address_range& wanted) {
  return std::any_of(ranges.begin(), ranges.end(),
                     [&](const address_range& range) { return meet(range, wanted); });
}

// What the kernel does for a netlink socket it does for any that gets datagrams.
class filtered_socket {
 public:
  filtered_socket() {
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends_), 0);
  }
  ~filtered_socket() {
    close(ends_[0]);
    close(ends_[1]);
  }
  filtered_socket(const filtered_socket&) = delete;
  filtered_socket& operator=(const filtered_socket&) = delete;

  [[nodiscard]] int fd() const { return ends_[0]; }

  bool passes(const std::string& datagram) const {
    EXPECT_EQ(send(ends_[1], datagram.data(), datagram.size(), 0),
              static_cast<ssize_t>(datagram.size()));
    char received[1024];
    const ssize_t length = recv(ends_[0], received, sizeof received, 0);
    return length > 0 && std::string(received, static_cast<std::size_t>(length)) == datagram;
  }

 private:
  int ends_[2] = {-1, -1};
};

// As the kernel tells of a route. `address` in host byte order.
std::string route_message(std::uint16_t type, std::uint32_t address, std::uint8_t length,
                          unsigned char family = AF_INET) {
  alignas(nlmsghdr) char bytes[256] = {};
  nlmsghdr* message = mnl_nlmsg_put_header(bytes);
  message->nlmsg_type = type;
  auto* route = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(rtmsg)));
  route->rtm_family = family;
  route->rtm_dst_len = length;
  mnl_attr_put_u32(message, RTA_TABLE, RT_TABLE_MAIN);
  if (length != 0) {
    mnl_attr_put_u32(message, RTA_DST, htonl(address));
  }
  mnl_attr_put_u32(message, RTA_OIF, 7);
  return {bytes, message->nlmsg_len};
}

struct seeded_chance {
  unsigned seed = test::one_seed();
  std::mt19937_64 random{seed};
  std::uint64_t below(std::uint64_t end) { return random() % end; }
};

// Addresses that are often near each other, at either end too.
std::uint32_t some_address(seeded_chance& chance) {
  const auto any = static_cast<std::uint32_t>(chance.random());
  switch (chance.below(4)) {
    case 0:
      return any;
    case 1:
      return any & 0xfff;
    case 2:
      return ~(any & 0xfff);
    default:
      return 0x0a000000 | (any & 0xfffff);
  }
}

std::vector<address_range> some_ranges(seeded_chance& chance, std::size_t count) {
  std::vector<address_range> ranges(count);
  for (address_range& range : ranges) {
    range = range_of(some_address(chance), 8 + static_cast<std::uint32_t>(chance.below(25)));
  }
  return ranges;
}

TEST(route_message_filter, passes_just_the_routes_that_meet_a_range) {
  seeded_chance chance;
  SCOPED_TRACE(test::shown(chance.seed));
  const filtered_socket socket;
  for (const std::size_t count : {0U, 1U, 2U, 3U, 7U, 50U, 190U}) {
    const std::vector<address_range> ranges = some_ranges(chance, count);
    ASSERT_EQ(filter_route_messages(socket.fd(), ranges), 0);
    for (int i = 0; i < 1'000; ++i) {
      const auto length = static_cast<std::uint8_t>(1 + chance.below(32));
      const address_range route = range_of(some_address(chance), length);
      const std::uint16_t type = chance.below(2) == 0 ? RTM_NEWROUTE : RTM_DELROUTE;
      ASSERT_EQ(socket.passes(route_message(type, route.first, length)), meets_any(ranges, route))
          << count << " ranges, " << route.first << "/" << unsigned{length};
    }
  }
}

TEST(route_message_filter, passes_all_that_meet_one_of_very_many_ranges) {
  seeded_chance chance;
  SCOPED_TRACE(test::shown(chance.seed));
  const filtered_socket socket;
  const std::vector<address_range> ranges = some_ranges(chance, 5'000);
  ASSERT_EQ(filter_route_messages(socket.fd(), ranges), 0);
  for (int i = 0; i < 1'000; ++i) {
    const address_range& range = ranges[chance.below(ranges.size())];
    ASSERT_TRUE(socket.passes(route_message(RTM_NEWROUTE, range.first, 32))) << range.first;
    ASSERT_TRUE(socket.passes(route_message(RTM_NEWROUTE, range.last, 32))) << range.last;
  }
}

TEST(route_message_filter, keeps_away_what_is_far_from_all_of_very_many_ranges) {
  const filtered_socket socket;
  std::vector<address_range> ranges;
  for (std::uint32_t number = 0; number < 5'000; ++number) {
    ranges.push_back(range_of(0x0a000000 + number * 512, 24));
  }
  ASSERT_EQ(filter_route_messages(socket.fd(), ranges), 0);
  EXPECT_TRUE(socket.passes(route_message(RTM_NEWROUTE, ranges.back().last, 32)));
  EXPECT_FALSE(socket.passes(route_message(RTM_NEWROUTE, ranges.front().first - 1, 32)));
  EXPECT_FALSE(socket.passes(route_message(RTM_NEWROUTE, ranges.back().last + 1, 32)));
}

TEST(route_message_filter, passes_what_is_not_one_route_with_a_prefix) {
  const filtered_socket socket;
  ASSERT_EQ(filter_route_messages(socket.fd(), {}), 0);
  const std::string route = route_message(RTM_NEWROUTE, 0x0a000000, 8);
  EXPECT_FALSE(socket.passes(route));
  EXPECT_TRUE(socket.passes(route + route)) << "two in one";
  EXPECT_TRUE(socket.passes(route_message(RTM_NEWROUTE, 0, 0))) << "the default route";
  EXPECT_TRUE(socket.passes(route_message(RTM_NEWROUTE, 0x0a000000, 33)));
  EXPECT_TRUE(socket.passes(route_message(RTM_NEWROUTE, 0x0a000000, 8, AF_INET6)));
  constexpr std::uint16_t others[] = {RTM_NEWLINK,    RTM_DELLINK,    RTM_NEWADDR,
                                      RTM_DELADDR,    RTM_NEWRULE,    RTM_DELRULE,
                                      RTM_NEWNEXTHOP, RTM_DELNEXTHOP, NLMSG_DONE};
  for (const std::uint16_t type : others) {
    EXPECT_TRUE(socket.passes(route_message(type, 0x0a000000, 8))) << type;
  }
  std::string without_prefix = route_message(RTM_NEWROUTE, 0, 0);
  without_prefix[NLMSG_HDRLEN + offsetof(rtmsg, rtm_dst_len)] = 8;
  EXPECT_TRUE(socket.passes(without_prefix));
  pass_all_messages(socket.fd());
  EXPECT_TRUE(socket.passes(route));
}

TEST(route_message_filter, holds_for_the_kernels_own_messages) {
  if (const std::string reason = no_namespace_reason(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  in_namespace([] {
    ip("link set lo up");
    netlink_socket events;
    ASSERT_EQ(events.open_events(RTMGRP_IPV4_ROUTE), 0);
    ASSERT_EQ(filter_route_messages(events.fd(), {range_of(0x0a010000, 16)}), 0);
    for (const char* prefix : {"10.0.0.0/16", "10.1.7.0/24", "10.2.0.0/16", "10.0.0.0/8",
                               "10.1.0.0/16", "192.0.2.1/32", "0.0.0.0/0"}) {
      ip(std::string{"route add "} + prefix + " dev lo");
    }
    std::string told;
    EXPECT_EQ(events.receive_events(
                  [](void* to, const nlmsghdr& message) {
                    route_record route;
                    ASSERT_TRUE(route_record_read(message, &route));
                    char text[INET_ADDRSTRLEN];
                    inet_ntop(AF_INET, &route.destination, text, sizeof text);
                    *static_cast<std::string*>(to) += std::string{text} + " ";
                  },
                  &told),
              EAGAIN);
    EXPECT_EQ(told, "10.1.7.0 10.0.0.0 10.1.0.0 0.0.0.0 ");
  });
}

TEST(joined_ranges, do_not_touch_and_take_the_smallest_gaps_in) {
  using ranges = std::vector<address_range>;
  EXPECT_EQ(join_ranges({}, 1), ranges{});
  EXPECT_EQ(join_ranges({{30, 39}, {10, 19}, {20, 24}, {12, 15}}, 9), (ranges{{10, 24}, {30, 39}}));
  EXPECT_EQ(join_ranges({{10, 10}, {13, 13}, {15, 15}, {40, 40}}, 3),
            (ranges{{10, 10}, {13, 15}, {40, 40}}));
  EXPECT_EQ(join_ranges({{10, 10}, {13, 13}, {15, 15}, {40, 40}}, 2), (ranges{{10, 15}, {40, 40}}));
  EXPECT_EQ(join_ranges({{0, 0}, {0xffffffff, 0xffffffff}, {7, 7}}, 1), (ranges{{0, 0xffffffff}}));
}

}  // namespace
}  // namespace ot::testing
