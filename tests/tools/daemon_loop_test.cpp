// The event loop's sources: what ends when, and what goes first.
#include "tools/daemon/loop.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <string>

#include "platform/linux/monotonic.h"
#include "platform/linux/unique_fd.h"

namespace ot {
namespace {

class daemon_loop : public testing::Test {
 protected:
  struct pair {
    unique_fd near;
    unique_fd far;
  };

  void SetUp() override { ASSERT_GE(sd_event_new(&loop_), 0); }
  void TearDown() override { sd_event_unref(loop_); }

  static pair connected() {
    std::array<int, 2> ends{-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()), 0);
    return {unique_fd(ends[0]), unique_fd(ends[1])};
  }
  static void send_to(const unique_fd& peer) { ASSERT_EQ(send(peer.get(), "x", 1, 0), 1); }

  // Turns the loop until nothing is left to do.
  void turn() {
    while (sd_event_run(loop_, 0) > 0) {
    }
  }

  sd_event* loop_ = nullptr;
};

// As with a descriptor that a child process has inherited.
TEST_F(daemon_loop, a_source_that_ends_in_its_call_is_not_watched_beyond_its_descriptor) {
  pair watched = connected();
  const unique_fd kept_open(fcntl(watched.near.get(), F_DUPFD_CLOEXEC, 0));
  int calls = 0;
  std::optional<loop_source> source;
  source = loop_source::descriptor(loop_, watched.near.get(), EPOLLIN, [&](std::uint32_t) {
    ++calls;
    source.reset();
    watched.near.reset();
  });
  send_to(watched.far);
  turn();
  ASSERT_EQ(calls, 1);
  turn();  // it is still readable
  EXPECT_EQ(calls, 1);
}

TEST_F(daemon_loop, the_next_descriptor_of_the_same_number_is_watched) {
  pair first = connected();
  pair second = connected();
  const int number = first.near.get();
  bool called = false;
  std::optional<loop_source> source;
  std::optional<loop_source> next;
  source = loop_source::descriptor(loop_, number, EPOLLIN, [&](std::uint32_t) {
    source.reset();
    first.near.reset();
    ASSERT_EQ(fcntl(second.near.get(), F_DUPFD_CLOEXEC, number), number);
    first.near = unique_fd(number);
    next = loop_source::descriptor(loop_, number, EPOLLIN, [&](std::uint32_t) {
      called = true;
      next.reset();
    });
  });
  send_to(first.far);
  send_to(second.far);
  turn();
  EXPECT_TRUE(called);
}

TEST_F(daemon_loop, a_callback_outlives_its_source_until_it_returns) {
  pair watched = connected();
  std::optional<loop_source> source;
  std::string seen;
  source = loop_source::descriptor(
      loop_, watched.near.get(), EPOLLIN,
      [&, text = std::string("longer than what a text holds within itself")](std::uint32_t) {
        source.reset();
        seen = text;
      });
  send_to(watched.far);
  turn();
  EXPECT_EQ(seen, "longer than what a text holds within itself");
}

TEST_F(daemon_loop, what_is_urgent_waits_for_no_busy_descriptor) {
  std::array<pair, 8> busy{connected(), connected(), connected(), connected(),
                           connected(), connected(), connected(), connected()};
  std::array<loop_source, 8> sources;
  int reads = 0;
  for (std::size_t i = 0; i < busy.size(); ++i) {
    send_to(busy[i].far);  // and never read
    sources[i] = loop_source::descriptor(loop_, busy[i].near.get(), EPOLLIN,
                                         [&](std::uint32_t) { ++reads; });
  }
  ASSERT_GE(sd_event_run(loop_, 0), 0);  // all of them have come by now
  bool called = false;
  loop_source timer =
      loop_source::timer(loop_, monotonic_us(), 1, [&](std::uint32_t) { called = true; });
  timer.make_urgent();
  const int before = reads;
  while (!called && reads < before + 100) {
    timer.set_time(monotonic_us());  // again and again, as who plans anew at every turn
    ASSERT_GE(sd_event_run(loop_, 0), 0);
  }
  EXPECT_TRUE(called);
  EXPECT_LE(reads, before + 1);
}

}  // namespace
}  // namespace ot
