// Events that come in floods, and events that are longer than any we know.
#include "platform/linux/netlink/watch.h"

#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <vector>

#include "platform/event_manager.h"
#include "platform/linux/loop/sd_event.h"
#include "tests/contract/linux/link_watch.h"
#include "tests/contract/linux/network_namespace.h"

namespace ot::testing {
namespace {

// An event of so many bytes, of a type that nobody knows, to all that listen for link events.
class sender {
 public:
  ~sender() { close(fd_); }
  sender() = default;
  sender(const sender&) = delete;
  sender& operator=(const sender&) = delete;

  void send(std::uint32_t size) const {
    std::vector<char> bytes(size);
    nlmsghdr* message = mnl_nlmsg_put_header(bytes.data());
    message->nlmsg_type = RTM_MAX + 1;
    message->nlmsg_len = size;
    sockaddr_nl to{};
    to.nl_family = AF_NETLINK;
    to.nl_groups = RTMGRP_LINK;
    ASSERT_EQ(sendto(fd_, bytes.data(), size, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to),
              static_cast<ssize_t>(size));
  }

 private:
  int fd_ = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
};

// A watch, and another source of its loop that has something to do from the first event on.
struct watched {
  watched() {
    EXPECT_EQ(evm_create(&manager), 0);
    EXPECT_EQ(watch.open(RTMGRP_LINK), 0);
    EXPECT_GE(sd_event_add_io(evm_sd_event(manager), &source, other, EPOLLIN, on_other, this), 0);
  }
  ~watched() {
    watch.close();
    sd_event_source_disable_unref(source);
    close(other);
    evm_destroy(manager);
  }
  watched(const watched&) = delete;
  watched& operator=(const watched&) = delete;

  static int on_other(sd_event_source*, int fd, std::uint32_t, void* self) {
    auto& all = *static_cast<watched*>(self);
    all.events_before_other = all.events;
    eventfd_t ignored = 0;
    EXPECT_EQ(eventfd_read(fd, &ignored), 0);
    return 0;
  }
  static void on_event(void* self, const nlmsghdr&) {
    auto& all = *static_cast<watched*>(self);
    if (++all.events == 1) {
      EXPECT_EQ(eventfd_write(all.other, 1), 0);
    }
  }

  int events = 0;
  int events_before_other = 0;
  std::vector<int> losses;
  evm* manager = nullptr;
  int other = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  sd_event_source* source = nullptr;
  netlink_watch watch{
      {on_event, nullptr, [](void*) {},
       [](void* self, int status) { static_cast<watched*>(self)->losses.push_back(status); }},
      this};
};

constexpr int flood = 5'000;

TEST(netlink_watch, reads_a_flood_in_turns_with_the_other_sources) {
  if (const std::string reason = no_namespace_reason(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  for (const netlink_turn turn : {netlink_turn::usual, netlink_turn::urgent}) {
    in_namespace([turn] {
      watched all;
      const sender kernel;
      for (int i = 0; i < flood; ++i) {
        kernel.send(NLMSG_HDRLEN);
      }
      ASSERT_EQ(all.watch.follow(all.manager, turn), 0);
      EXPECT_TRUE(run_loop_until(all.manager, [&all] { return all.events == flood; }));
      EXPECT_GT(all.events_before_other, 0);
      EXPECT_LT(all.events_before_other, flood);
      EXPECT_TRUE(all.losses.empty());
    });
  }
}

TEST(netlink_watch, counts_an_event_that_is_too_long_as_lost) {
  if (const std::string reason = no_namespace_reason(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  in_namespace([] {
    watched all;
    const sender kernel;
    ASSERT_EQ(all.watch.follow(all.manager), 0);
    kernel.send(60'000);
    EXPECT_TRUE(run_loop_until(all.manager, [&all] { return !all.losses.empty(); }));
    EXPECT_EQ(all.losses, std::vector<int>{ENOBUFS});
    EXPECT_EQ(all.events, 0);
    kernel.send(NLMSG_HDRLEN);  // and events are followed as before
    EXPECT_TRUE(run_loop_until(all.manager, [&all] { return all.events == 1; }));
    EXPECT_EQ(all.losses.size(), 1U);
  });
}

}  // namespace
}  // namespace ot::testing
