// Who else has a UDP port, by either way to look: seen in the namespace of the thread, whatever
// address he has it on.
#include "platform/linux/bfd/own/port_owners.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/netlink.h>
#include <linux/seccomp.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/unique_fd.h"
#include "tests/contract/linux/network_namespace.h"

namespace ot::bfd {
namespace {

// Port 0: one that is nobody's. Others may open the port, too.
unique_fd open_port(std::uint16_t port, const char* address = "0.0.0.0", int type = SOCK_DGRAM) {
  unique_fd opened{socket(AF_INET, type | SOCK_CLOEXEC, 0)};
  const auto allow_others = [&opened] {
    const int yes = 1;
    setsockopt(opened.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  };
  // Else the kernel might choose one that allows others.
  if (port != 0) allow_others();
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(port);
  inet_pton(AF_INET, address, &name.sin_addr);
  EXPECT_EQ(bind(opened.get(), reinterpret_cast<sockaddr*>(&name), sizeof name), 0);
  allow_others();
  return opened;
}

std::uint16_t port_of(const unique_fd& opened) {
  sockaddr_in name{};
  socklen_t size = sizeof name;
  EXPECT_EQ(getsockname(opened.get(), reinterpret_cast<sockaddr*>(&name), &size), 0);
  return ntohs(name.sin_port);
}

void speak_to(const unique_fd& from, std::uint16_t port) {
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_port = htons(port);
  peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(connect(from.get(), reinterpret_cast<sockaddr*>(&peer), sizeof peer), 0);
}

// The ways to look, which have to tell the same.
struct way_to_look {
  const char* name;
  std::optional<uid_t> (*other)(std::uint16_t port, int own);
};
const way_to_look ways[] = {
    {"diagnosed",
     [](std::uint16_t port, int own) {
       std::optional<uid_t> found;
       EXPECT_EQ(diagnosed_port_owner(port, own, &found), 0) << "this kernel has no udp_diag";
       return found;
     }},
    {"listed", [](std::uint16_t port, int own) { return listed_port_owner(port, own); }},
    {"either", [](std::uint16_t port, int own) { return port_owners{}.other(port, own); }},
};

class bfd_port_owners : public ::testing::TestWithParam<way_to_look> {
 protected:
  static std::optional<uid_t> other(std::uint16_t port, int own) {
    return GetParam().other(port, own);
  }
  // Where the loopback works.
  template <typename Body>
  static void in_own_network(Body&& body) {
    if (const std::string reason = ot::testing::no_namespace_reason(); !reason.empty()) {
      GTEST_SKIP() << reason;
    }
    ot::testing::in_namespace([&] {
      ot::testing::ip("link set lo up");
      body();
    });
  }
};

INSTANTIATE_TEST_SUITE_P(each_way, bfd_port_owners, ::testing::ValuesIn(ways),
                         [](const auto& way) { return std::string(way.param.name); });

TEST_P(bfd_port_owners, are_everybody_but_ourselves) {
  in_own_network(
      [] {  // that of the process may be one that another test has left without a loopback
        unique_fd ours = open_port(0);
        const std::uint16_t port = port_of(ours);
        EXPECT_EQ(other(port, ours.get()), std::nullopt);
        EXPECT_EQ(other(port, -1), getuid()) << "when none is ours";
        for (const char* address : {"0.0.0.0", "127.0.0.1"}) {
          const unique_fd another = open_port(port, address);
          EXPECT_EQ(other(port, ours.get()), getuid()) << address;
          EXPECT_EQ(other(port, another.get()), getuid()) << "and for him it is we";
        }
        EXPECT_EQ(other(port, ours.get()), std::nullopt) << "he has left";
        ours.reset();
        EXPECT_EQ(other(port, -1), std::nullopt);
      });
}

TEST_P(bfd_port_owners, have_that_port_and_not_one_like_it) {
  in_own_network([] {
    const unique_fd probe = open_port(0);
    const std::uint16_t port = port_of(probe);
    const unique_fd stream = open_port(port, "0.0.0.0", SOCK_STREAM);
    EXPECT_EQ(other(port, probe.get()), std::nullopt) << "TCP is another world";
    const unique_fd connected{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    speak_to(connected, port);
    EXPECT_EQ(other(port, probe.get()), std::nullopt) << "he speaks to it, from another";
  });
}

TEST_P(bfd_port_owners, count_when_they_speak_to_one_neighbor_only) {
  in_own_network([] {
    const unique_fd ours = open_port(0);
    const std::uint16_t port = port_of(ours);
    const unique_fd another = open_port(port);
    speak_to(another, 9);
    EXPECT_EQ(other(port, ours.get()), getuid());
  });
}

// As on a router with many sockets: the list is longer than one read of it.
TEST_P(bfd_port_owners, are_found_among_many) {
  const unique_fd ours = open_port(0);
  const std::uint16_t port = port_of(ours);
  std::vector<unique_fd> crowd;
  for (int i = 0; i < 500; ++i) crowd.push_back(open_port(0));
  EXPECT_EQ(other(port, ours.get()), std::nullopt);
  const unique_fd another = open_port(port);
  EXPECT_EQ(other(port, ours.get()), getuid());
}

TEST_P(bfd_port_owners, of_other_namespaces_do_not_count) {
  if (const std::string reason = ot::testing::no_namespace_reason(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  const unique_fd outside = open_port(0);
  const std::uint16_t port = port_of(outside);
  ot::testing::in_namespace([&] {
    EXPECT_EQ(other(port, -1), std::nullopt);
    const unique_fd inside = open_port(port);
    EXPECT_EQ(other(port, inside.get()), std::nullopt);
  });
  EXPECT_EQ(other(port, outside.get()), std::nullopt);
}

// The thread's sockets for questions to the kernel are refused from here on, as by a kernel that is
// built without the diagnosis.
void lose_diagnosis() {
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_socket, 0, 5),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[0])),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AF_NETLINK, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, NETLINK_SOCK_DIAG, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPROTONOSUPPORT),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter{std::size(program), program};
  ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
  ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter), 0);
}

TEST(bfd_port_owners_of_an_older_kernel, are_found_in_the_list) {
  std::thread([] {
    lose_diagnosis();
    const unique_fd ours = open_port(0);
    const std::uint16_t port = port_of(ours);
    std::optional<uid_t> untouched = 4711;
    ASSERT_EQ(diagnosed_port_owner(port, -1, &untouched), EPROTONOSUPPORT);
    EXPECT_EQ(untouched, 4711U);
    port_owners looked;
    for (int looks = 0; looks < 2; ++looks) {
      EXPECT_EQ(looked.other(port, ours.get()), std::nullopt);
      EXPECT_EQ(looked.other(port, -1), getuid());
    }
  }).join();
}

TEST(bfd_port_owner_texts, name_the_user) {
  EXPECT_EQ(user_text(0), "root");
  EXPECT_EQ(user_text(4'000'000'000U), "4000000000");
}

}  // namespace
}  // namespace ot::bfd
