// Who else has a UDP port: seen in the namespace of the thread, whatever address he has it on.
#include "platform/linux/bfd/own/port_owners.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/unique_fd.h"
#include "tests/contract/linux/network_namespace.h"

namespace ot::bfd {
namespace {

unique_fd open_port(std::uint16_t port, const char* address = "0.0.0.0", int type = SOCK_DGRAM) {
  unique_fd opened{socket(AF_INET, type | SOCK_CLOEXEC, 0)};
  const int yes = 1;
  setsockopt(opened.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(port);
  inet_pton(AF_INET, address, &name.sin_addr);
  EXPECT_EQ(bind(opened.get(), reinterpret_cast<sockaddr*>(&name), sizeof name), 0);
  return opened;
}

std::uint16_t port_of(const unique_fd& opened) {
  sockaddr_in name{};
  socklen_t size = sizeof name;
  EXPECT_EQ(getsockname(opened.get(), reinterpret_cast<sockaddr*>(&name), &size), 0);
  return ntohs(name.sin_port);
}

TEST(bfd_port_owners, are_everybody_but_ourselves) {
  unique_fd ours = open_port(0);
  const std::uint16_t port = port_of(ours);
  EXPECT_EQ(other_port_owner(port, ours.get()), std::nullopt);
  EXPECT_EQ(other_port_owner(port, -1), getuid()) << "when none is ours";
  for (const char* address : {"0.0.0.0", "127.0.0.1"}) {
    const unique_fd other = open_port(port, address);
    EXPECT_EQ(other_port_owner(port, ours.get()), getuid()) << address;
    EXPECT_EQ(other_port_owner(port, other.get()), getuid()) << "and for him it is we";
  }
  EXPECT_EQ(other_port_owner(port, ours.get()), std::nullopt) << "he has left";
  ours.reset();
  EXPECT_EQ(other_port_owner(port, -1), std::nullopt);
}

TEST(bfd_port_owners, have_that_port_and_not_one_like_it) {
  if (const std::string reason = ot::testing::no_namespace_reason(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  ot::testing::in_namespace([] {
    ot::testing::ip("link set lo up");
    const unique_fd probe = open_port(0);
    const std::uint16_t port = port_of(probe);
    const unique_fd stream = open_port(port, "0.0.0.0", SOCK_STREAM);
    EXPECT_EQ(other_port_owner(port, probe.get()), std::nullopt) << "TCP is another world";
    const unique_fd connected{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(port);
    peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(connect(connected.get(), reinterpret_cast<sockaddr*>(&peer), sizeof peer), 0);
    EXPECT_EQ(other_port_owner(port, probe.get()), std::nullopt) << "he speaks to it, from another";
  });
}

// As on a router with many sockets: the list is longer than one read of it.
TEST(bfd_port_owners, are_found_among_many) {
  const unique_fd ours = open_port(0);
  const std::uint16_t port = port_of(ours);
  std::vector<unique_fd> crowd;
  for (int i = 0; i < 500; ++i) crowd.push_back(open_port(0));
  EXPECT_EQ(other_port_owner(port, ours.get()), std::nullopt);
  const unique_fd other = open_port(port);
  EXPECT_EQ(other_port_owner(port, ours.get()), getuid());
}

TEST(bfd_port_owners, of_other_namespaces_do_not_count) {
  if (const std::string reason = ot::testing::no_namespace_reason(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  const unique_fd outside = open_port(0);
  const std::uint16_t port = port_of(outside);
  ot::testing::in_namespace([&] {
    EXPECT_EQ(other_port_owner(port, -1), std::nullopt);
    const unique_fd inside = open_port(port);
    EXPECT_EQ(other_port_owner(port, inside.get()), std::nullopt);
  });
  EXPECT_EQ(other_port_owner(port, outside.get()), std::nullopt);
}

TEST(bfd_port_owners, are_named) {
  EXPECT_EQ(user_text(0), "root");
  EXPECT_EQ(user_text(4'000'000'000U), "4000000000");
}

}  // namespace
}  // namespace ot::bfd
