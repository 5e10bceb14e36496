// The way to a BFD neighbor: over which link and from which address, as the kernel's links and
// addresses are, and as they change.
#include "platform/linux/bfd/own/links.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/rtnetlink.h>

#include <functional>
#include <string>
#include <string_view>

#include "platform/event_manager.h"
#include "tests/contract/linux/event_sockets.h"
#include "tests/contract/linux/link_watch.h"
#include "tests/contract/linux/network_namespace.h"

namespace ot::bfd {
namespace {

using ot::testing::ip;

std::uint32_t address(const char* text) {
  return text == nullptr ? 0 : inet_addr(text);
}

// Links of the thread's namespace.
class followed_links {
 public:
  followed_links() {
    EXPECT_EQ(evm_create(&manager_), 0);
    EXPECT_EQ(links_.attach(manager_), 0);
    links_.open();
  }
  ~followed_links() {
    links_.close();
    evm_destroy(manager_);
  }
  followed_links(const followed_links&) = delete;
  followed_links& operator=(const followed_links&) = delete;

  // "IFINDEX from ADDRESS", or the problem.
  std::string way(const char* interface, const char* to = "10.9.0.2", const char* from = nullptr) {
    session_config config;
    config.key = {interface_name{std::string_view{interface}}, address(to)};
    config.source = address(from);
    std::string_view problem;
    const auto path = links_.towards(config, &problem);
    if (!path) return std::string(problem);
    EXPECT_EQ(path->destination, config.key.destination);
    return std::to_string(path->ifindex) + " from " + inet_ntoa({path->source});
  }
  // Lets the loop run until the way is that one.
  void expect(const std::string& expected, const char* interface = "e0",
              const char* to = "10.9.0.2", const char* from = nullptr) {
    ot::testing::run_loop_until(manager_, [&] { return way(interface, to, from) == expected; });
    EXPECT_EQ(way(interface, to, from), expected) << interface;
    EXPECT_GE(reports_, 0);
  }
  [[nodiscard]] int reports() const { return reports_; }

 private:
  static void changed(void* self) noexcept { ++static_cast<followed_links*>(self)->reports_; }

  evm* manager_ = nullptr;
  local_links links_{changed, this};
  int reports_ = 0;
};

constexpr const char* no_interface = "there is no such interface";
constexpr const char* no_carrier = "the interface has no carrier";
constexpr const char* no_address = "the interface has no IPv4 address";
constexpr const char* not_its_address = "the interface does not have the source address";
constexpr const char* ours = "the address is one of this router's own";
constexpr const char* switched_off = "the interface is administratively down";

void with_links(const std::function<void()>& body) {
  if (const std::string reason = ot::testing::no_namespace_reason(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  ot::testing::in_namespace([&] {
    ip("link add e0 index 10 type veth peer name p0");
    ip("link add e1 index 11 type veth peer name p1");
    ip("addr add 10.9.0.1/24 dev e0");
    for (const char* name : {"e0", "p0", "e1", "p1"}) ip(std::string("link set ") + name + " up");
    body();
  });
}

TEST(bfd_links, lead_to_a_neighbor_from_the_address_in_its_network) {
  with_links([] {
    ip("addr add 10.8.0.1/24 dev e1");
    ip("addr add 10.9.0.5/24 dev e1");
    ip("addr add 10.9.0.6/24 dev e1");
    followed_links links;
    links.expect("10 from 10.9.0.1");
    links.expect("11 from 10.9.0.5", "e1");
    EXPECT_EQ(links.way("e1", "10.8.0.9"), "11 from 10.8.0.1");
    EXPECT_EQ(links.way("e1", "192.0.2.1"), "11 from 10.8.0.1") << "in no network of the link";
    EXPECT_EQ(links.way("e1", "10.9.0.2", "10.9.0.6"), "11 from 10.9.0.6") << "as asked for";
    EXPECT_EQ(links.way("e1", "10.9.0.2", "10.9.0.1"), not_its_address) << "it is e0's";
    EXPECT_EQ(links.way("e9"), no_interface);
    links.expect(no_address, "p0");
    EXPECT_EQ(links.way("lo"), switched_off);
  });
}

TEST(bfd_links, lead_to_no_address_of_our_own) {
  with_links([] {
    followed_links links;
    links.expect("10 from 10.9.0.1");
    EXPECT_EQ(links.way("e0", "10.9.0.1"), ours);
    links.expect(ours, "e1", "10.9.0.1");  // over another interface, too
    ip("addr add 10.9.0.2/24 dev e1");
    links.expect(ours);
    ip("addr del 10.9.0.2/24 dev e1");
    links.expect("10 from 10.9.0.1");
  });
}

TEST(bfd_links, lead_to_the_other_end_of_a_link_without_a_network) {
  with_links([] {
    ip("addr add 10.7.0.1 peer 10.7.0.2/32 dev e1");
    ip("addr add 10.6.0.1 peer 10.6.0.2/32 dev e1");
    followed_links links;
    links.expect("11 from 10.7.0.1", "e1", "10.7.0.2");
    EXPECT_EQ(links.way("e1", "10.6.0.2"), "11 from 10.6.0.1");
  });
}

TEST(bfd_links, are_followed_as_they_change) {
  with_links([] {
    followed_links links;
    links.expect("10 from 10.9.0.1");
    const auto after = [&](const char* command, const std::string& expected) {
      const int before = links.reports();
      ip(command);
      links.expect(expected);
      EXPECT_GT(links.reports(), before) << command;
    };
    after("link set p0 down", no_carrier);
    after("link set p0 up", "10 from 10.9.0.1");
    after("link set e0 down", switched_off);
    after("link set e0 up", "10 from 10.9.0.1");
    after("addr del 10.9.0.1/24 dev e0", no_address);
    links.expect(not_its_address, "e0", "10.9.0.2", "10.9.0.1");
    after("addr add 10.9.0.3/24 dev e0", "10 from 10.9.0.3");
    links.expect(not_its_address, "e0", "10.9.0.2", "10.9.0.1");
    after("link del e0", no_interface);
    ip("link add e0 index 12 type veth peer name p0");
    ip("addr add 10.9.0.1/24 dev e0");
    ip("link set p0 up");
    after("link set e0 up", "12 from 10.9.0.1");
  });
}

TEST(bfd_links, are_known_by_their_names_of_now) {
  with_links([] {
    followed_links links;
    links.expect("10 from 10.9.0.1");
    for (const char* command :
         {"e0 down", "e0 name x0", "e1 down", "e1 name e0", "x0 name e1", "e0 up", "e1 up"}) {
      ip(std::string("link set ") + command);
    }
    links.expect("10 from 10.9.0.1", "e1");
    links.expect(no_address, "e0");
    EXPECT_EQ(links.way("x0"), no_interface);
  });
}

TEST(bfd_links, are_read_anew_when_events_were_lost) {
  with_links([] {
    followed_links links;
    links.expect("10 from 10.9.0.1");
    ASSERT_EQ(shrink_event_sockets(RTMGRP_LINK | RTMGRP_IPV4_IFADDR), 1);
    for (int i = 0; i < 20; ++i) {
      ip("link set e1 down");
      ip("link set e1 up");
    }
    ip("addr del 10.9.0.1/24 dev e0");
    ip("addr add 10.9.0.4/24 dev e0");
    ip("link del e1");
    ASSERT_GT(dropped_messages(), 0UL);
    links.expect("10 from 10.9.0.4");
    links.expect(no_interface, "e1");
    ip("addr del 10.9.0.4/24 dev e0");  // and followed as before
    ip("addr add 10.9.0.7/24 dev e0");
    links.expect("10 from 10.9.0.7");
  });
}

}  // namespace
}  // namespace ot::bfd
