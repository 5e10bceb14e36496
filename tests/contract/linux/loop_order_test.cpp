// Which of several things that wait comes first on a loop.
#include <linux/rtnetlink.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "platform/linux/loop/sd_event.h"
#include "platform/linux/netlink/watch.h"
#include "tests/contract/contract_test.h"
#include "tests/contract/linux/network_namespace.h"

namespace ot::contract {
namespace {

using testing::in_namespace;
using testing::ip;
using testing::no_namespace_reason;

class loop_order : public contract_test {
 protected:
  void run_one() {
    ASSERT_EQ(evm_block(manager()), 0);
    ASSERT_EQ(evm_dispatch(manager()), 0);
  }
};

TEST_F(loop_order, events_leave_before_stores_and_those_before_the_log) {
  static std::string order;
  order.clear();
  const auto note = [](void* word) { order += static_cast<const char*>(word); };
  char words[][4] = {"log", "st1", "ev1", "st2", "ev2"};
  const evm_flush_stage stages[] = {evm_flush_stage::log, evm_flush_stage::stores,
                                    evm_flush_stage::events, evm_flush_stage::stores,
                                    evm_flush_stage::events};
  for (int i = 0; i < 5; ++i) {
    ASSERT_EQ(evm_add_flush(manager(), stages[i], note, words[i]), 0);
  }
  evm_flush(manager());
  EXPECT_EQ(order, "ev1ev2st1st2log");
}

// Two watches of the same events, and another source that always waits.
struct busy_loop {
  explicit busy_loop(evm* manager) {
    EXPECT_EQ(usual.open(RTMGRP_LINK), 0);
    EXPECT_EQ(urgent.open(RTMGRP_LINK), 0);
    EXPECT_EQ(usual.follow(manager), 0);
    EXPECT_EQ(urgent.follow(manager, netlink_turn::urgent), 0);
    EXPECT_GE(sd_event_add_io(
                  evm_sd_event(manager), &other, always, EPOLLIN,
                  [](sd_event_source*, int, std::uint32_t, void* self) {
                    static_cast<busy_loop*>(self)->order += 'o';
                    return 0;
                  },
                  this),
              0);
  }
  ~busy_loop() {
    sd_event_source_disable_unref(other);
    close(always);
  }
  busy_loop(const busy_loop&) = delete;
  busy_loop& operator=(const busy_loop&) = delete;

  static netlink_watch::handlers noting(void (*taken)(void*)) {
    return {[](void*, const nlmsghdr&) {}, nullptr, taken, [](void*, int) {}};
  }

  std::string order;
  netlink_watch usual{noting([](void* self) { static_cast<busy_loop*>(self)->order += 'u'; }),
                      this};
  netlink_watch urgent{noting([](void* self) { static_cast<busy_loop*>(self)->order += 'U'; }),
                       this};
  int always = eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK);
  sd_event_source* other = nullptr;
};

TEST_F(loop_order, an_urgent_watch_is_read_before_all_others_that_wait) {
  if (const std::string reason = no_namespace_reason(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  in_namespace([this] {
    busy_loop busy(manager());
    for (int round = 0; round < 20; ++round) {
      busy.order.clear();
      ip(round % 2 == 0 ? "link set lo up" : "link set lo down");
      while (busy.order.find('u') == std::string::npos) {
        run_one();
      }
      EXPECT_EQ(busy.order[0], 'U');
    }
  });
}

TEST_F(loop_order, an_urgent_watch_whose_events_do_not_end_starves_nobody) {
  if (const std::string reason = no_namespace_reason(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  in_namespace([this] {
    busy_loop busy(manager());
    for (int turn = 0; turn < 60; ++turn) {
      ip(turn % 2 == 0 ? "link set lo up" : "link set lo down");
      run_one();
    }
    const auto turns = [&busy](char one) {
      return std::count(busy.order.begin(), busy.order.end(), one);
    };
    EXPECT_GE(turns('U'), 40);
    EXPECT_GE(turns('u'), 4);
    EXPECT_GE(turns('o'), 4);
  });
}

}  // namespace
}  // namespace ot::contract
