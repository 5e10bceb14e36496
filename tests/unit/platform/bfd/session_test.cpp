// A BFD session on virtual time: its state machine, its intervals, and what it sends when.
#include "platform/common/bfd/session.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

namespace ot::bfd {
namespace {

constexpr std::uint64_t ms = 1000;
constexpr std::uint64_t second = 1000 * ms;
constexpr session_timing fast{100'000, 100'000, 3};

std::uint32_t next_random(void* generator) {
  return static_cast<std::uint32_t>((*static_cast<std::mt19937*>(generator))());
}

class bfd_session : public testing::Test {
 protected:
  // Makes the session be in that state by packets of a neighbor.
  void bring_to(session_state state) {
    if (state == session_state::admin_down) {
      local_.disable(now_);
    }
    if (state == session_state::init || state == session_state::up) {
      hear(session_state::down);
    }
    if (state == session_state::up) {
      hear(session_state::init);
    }
    ASSERT_EQ(local_.state(), state);
    sent();
  }
  void hear(session_state state) {
    neighbor_.state = state;
    local_.received(neighbor_, now_);
    neighbor_.poll = neighbor_.final = false;
  }
  // What is sent now.
  std::vector<control_packet> sent() {
    std::vector<control_packet> packets;
    while (const std::optional<control_packet> packet = local_.next_packet(now_)) {
      packets.push_back(*packet);
    }
    return packets;
  }
  // Lets time pass up to the next packet; its time after `now_`.
  std::uint64_t wait_for_packet() {
    const std::uint64_t before = now_;
    for (int turns = 0; turns < 100; ++turns) {
      const std::optional<std::uint64_t> due = local_.next_due();
      if (!due) {
        ADD_FAILURE() << "nothing is ever due";
        return 0;
      }
      now_ = std::max(now_, *due);
      local_.run(now_);
      if (local_.next_packet(now_)) {
        return now_ - before;
      }
    }
    ADD_FAILURE() << "due, but nothing is done";
    return 0;
  }
  // The neighbor agrees with what it was polled for.
  void agree() {
    neighbor_.final = true;
    hear(neighbor_.state);
    sent();
  }

  static control_packet a_neighbor() {
    control_packet packet;
    packet.detect_multiplier = 3;
    packet.my_discriminator = 77;
    packet.your_discriminator = 9;
    packet.desired_min_tx = 100'000;
    packet.required_min_rx = 100'000;
    return packet;
  }

  std::mt19937 random_{5880};
  std::uint64_t now_ = 1000 * second;
  control_packet neighbor_ = a_neighbor();
  session local_{9, fast, now_, next_random, &random_};
};

struct transition {
  session_state from;
  session_state heard;
  session_state to;
  diagnostic reason;
};

TEST_F(bfd_session, follows_its_neighbor_by_the_state_machine) {
  using enum session_state;
  constexpr auto signaled = diagnostic::neighbor_signaled_down;
  constexpr auto by_hand = diagnostic::administratively_down;
  constexpr auto none = diagnostic::none;
  constexpr transition table[] = {
      {down, admin_down, down, none},
      {down, down, init, none},
      {down, init, up, none},
      {down, up, down, none},
      {init, admin_down, down, signaled},
      {init, down, init, none},
      {init, init, up, none},
      {init, up, up, none},
      {up, admin_down, down, signaled},
      {up, down, down, signaled},
      {up, init, up, none},
      {up, up, up, none},
      {admin_down, down, admin_down, by_hand},
      {admin_down, init, admin_down, by_hand},
      {admin_down, up, admin_down, by_hand},
      {admin_down, admin_down, admin_down, by_hand},
  };
  for (const transition& row : table) {
    local_ = session(9, fast, now_, next_random, &random_);
    bring_to(row.from);
    hear(row.heard);
    EXPECT_EQ(local_.state(), row.to) << int(row.from) << " heard " << int(row.heard);
    EXPECT_EQ(local_.reason(), row.reason) << int(row.from) << " heard " << int(row.heard);
  }
}

TEST_F(bfd_session, sends_once_a_second_until_it_is_up) {
  std::uint64_t least = second;
  std::uint64_t most = 0;
  wait_for_packet();
  for (int i = 0; i < 1000; ++i) {
    const std::uint64_t interval = wait_for_packet();
    least = std::min(least, interval);
    most = std::max(most, interval);
  }
  EXPECT_GE(least, 750 * ms);
  EXPECT_LT(least, 760 * ms);
  EXPECT_LE(most, 1000 * ms);
  EXPECT_GT(most, 990 * ms);
}

TEST_F(bfd_session, with_multiplier_1_sends_a_tenth_early_at_least) {
  local_ = session(9, {100'000, 100'000, 1}, now_, next_random, &random_);
  wait_for_packet();
  for (int i = 0; i < 1000; ++i) {
    const std::uint64_t interval = wait_for_packet();
    EXPECT_GE(interval, 750 * ms);
    EXPECT_LE(interval, 900 * ms);
  }
}

TEST_F(bfd_session, that_is_up_sends_at_the_pace_of_the_slower_end) {
  bring_to(session_state::up);
  EXPECT_EQ(local_.transmit_interval(), 100 * ms);
  neighbor_.required_min_rx = 400'000;
  hear(session_state::up);
  EXPECT_EQ(local_.transmit_interval(), 400 * ms);
  neighbor_.required_min_rx = 50'000;
  hear(session_state::up);
  EXPECT_EQ(local_.transmit_interval(), 100 * ms);
}

TEST_F(bfd_session, announces_its_pace_by_a_poll_when_it_comes_up) {
  hear(session_state::down);
  EXPECT_EQ(sent().at(0).desired_min_tx, 1'000'000U);
  hear(session_state::init);
  const auto packets = sent();
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_EQ(packets[0].state, session_state::up);
  EXPECT_TRUE(packets[0].poll);
  EXPECT_EQ(packets[0].desired_min_tx, 100'000U);
  wait_for_packet();
  agree();
  now_ += second;
  local_.received(neighbor_, now_);
  EXPECT_FALSE(sent().at(0).poll) << "the neighbor has agreed";
}

TEST_F(bfd_session, answers_a_poll_at_once_and_keeps_its_pace) {
  bring_to(session_state::up);
  agree();
  wait_for_packet();
  neighbor_.poll = true;
  hear(session_state::up);
  const auto packets = sent();
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_TRUE(packets[0].final);
  EXPECT_FALSE(packets[0].poll);
  EXPECT_GE(wait_for_packet(), 75 * ms) << "the answer is beside the others";
}

TEST_F(bfd_session, tells_its_state_at_once) {
  wait_for_packet();
  hear(session_state::down);
  const auto packets = sent();
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_EQ(packets[0].state, session_state::init);
  EXPECT_EQ(packets[0].your_discriminator, 77U);
}

TEST_F(bfd_session, answers_a_poll_within_its_own) {
  bring_to(session_state::up);
  neighbor_.poll = true;
  hear(session_state::up);
  const auto packets = sent();
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_TRUE(packets[0].final);
  EXPECT_FALSE(packets[0].poll);
  wait_for_packet();
  agree();
}

TEST_F(bfd_session, sends_more_rarely_only_when_the_neighbor_agrees) {
  bring_to(session_state::up);
  agree();
  local_.set_timing({500'000, 100'000, 3}, now_);
  EXPECT_EQ(local_.transmit_interval(), 100 * ms);
  const auto packets = sent();
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_TRUE(packets[0].poll);
  EXPECT_EQ(packets[0].desired_min_tx, 500'000U);
  agree();
  EXPECT_EQ(local_.transmit_interval(), 500 * ms);
}

TEST_F(bfd_session, expects_packets_sooner_only_when_the_neighbor_agrees) {
  bring_to(session_state::up);
  agree();
  neighbor_.desired_min_tx = 10'000;
  local_.set_timing({100'000, 50'000, 3}, now_);
  hear(session_state::up);
  EXPECT_EQ(local_.detection_time(), 300 * ms);
  agree();
  EXPECT_EQ(local_.detection_time(), 150 * ms);
  local_.set_timing({100'000, 200'000, 3}, now_);
  EXPECT_EQ(local_.detection_time(), 600 * ms) << "more rarely at once";
}

TEST_F(bfd_session, polls_again_for_a_change_within_a_poll) {
  bring_to(session_state::up);
  agree();
  local_.set_timing({500'000, 100'000, 3}, now_);
  sent();
  local_.set_timing({700'000, 100'000, 3}, now_);
  sent();
  agree();
  EXPECT_EQ(local_.transmit_interval(), 100 * ms) << "that was for the first change";
  agree();
  EXPECT_EQ(local_.transmit_interval(), 700 * ms);
}

TEST_F(bfd_session, goes_down_when_the_neighbor_is_silent_for_too_long) {
  bring_to(session_state::up);
  EXPECT_EQ(local_.detection_time(), 300 * ms);
  now_ += 300 * ms - 1;
  local_.run(now_);
  EXPECT_EQ(local_.state(), session_state::up);
  now_ += 1;
  local_.run(now_);
  EXPECT_EQ(local_.state(), session_state::down);
  EXPECT_EQ(local_.reason(), diagnostic::detection_time_expired);
  EXPECT_EQ(local_.remote_discriminator(), 0U);
  const auto packets = sent();
  ASSERT_EQ(packets.size(), 1U) << "the neighbor is told at once";
  EXPECT_EQ(packets[0].state, session_state::down);
  EXPECT_EQ(packets[0].your_discriminator, 0U);
  EXPECT_EQ(packets[0].desired_min_tx, 1'000'000U);
}

TEST_F(bfd_session, counts_silence_by_the_neighbors_multiplier_and_the_slower_end) {
  neighbor_.detect_multiplier = 5;
  neighbor_.desired_min_tx = 250'000;
  bring_to(session_state::up);
  EXPECT_EQ(local_.detection_time(), 1250 * ms);
}

TEST_F(bfd_session, loses_its_path_at_once) {
  bring_to(session_state::up);
  local_.lose_path(now_);
  EXPECT_EQ(local_.state(), session_state::down);
  EXPECT_EQ(local_.reason(), diagnostic::path_down);
  EXPECT_EQ(local_.remote_discriminator(), 0U);
}

TEST_F(bfd_session, that_is_disabled_says_so_for_a_while_and_is_silent_then) {
  bring_to(session_state::up);
  agree();
  local_.disable(now_);
  const std::uint64_t disabled = now_;
  const auto packets = sent();
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_EQ(packets[0].state, session_state::admin_down);
  EXPECT_EQ(packets[0].reason, diagnostic::administratively_down);
  std::uint64_t last = now_;
  for (std::optional<std::uint64_t> due = local_.next_due(); due; due = local_.next_due()) {
    now_ = std::max(now_, *due);
    local_.run(now_);
    last = sent().empty() ? last : now_;
    ASSERT_LT(now_, disabled + 60 * second) << "never silent";
  }
  EXPECT_GE(last, disabled + 2 * second);
  EXPECT_LE(last, disabled + 3 * second);
  neighbor_.poll = true;
  hear(session_state::down);
  EXPECT_TRUE(sent().empty()) << "packets for it are discarded";
  now_ += 5 * second;
  EXPECT_TRUE(sent().empty());
  local_.enable(now_);
  EXPECT_EQ(local_.state(), session_state::down);
  EXPECT_EQ(sent().size(), 1U);
}

TEST_F(bfd_session, sends_nothing_to_a_neighbor_that_wants_nothing) {
  bring_to(session_state::up);
  neighbor_.required_min_rx = 0;
  hear(session_state::up);
  now_ += 200 * ms;
  EXPECT_TRUE(sent().empty());
  neighbor_.poll = true;
  hear(session_state::up);
  EXPECT_EQ(sent().size(), 1U) << "but the answer to a poll";
}

TEST_F(bfd_session, sends_only_polls_to_a_neighbor_in_demand_mode) {
  bring_to(session_state::up);
  agree();
  neighbor_.demand = true;
  hear(session_state::up);
  sent();
  now_ += 200 * ms;
  EXPECT_TRUE(sent().empty());
  local_.set_timing({300'000, 100'000, 3}, now_);
  const auto packets = sent();
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_TRUE(packets[0].poll);
}

// --- Two ends ------------------------------------------------------------------------------------

// Two sessions and the way between them, which loses and delays packets.
class bfd_pair : public testing::Test {
 protected:
  struct on_the_way {
    std::uint64_t at;
    control_packet packet;
    bool to_first;
  };

  std::uint32_t pick(std::uint32_t limit) {
    return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(random_);
  }
  void send_from(session& from, bool to_first) {
    while (const std::optional<control_packet> packet = from.next_packet(now_)) {
      ++packets_;
      if (!cut_ && pick(100) >= loss_) {
        way_.push_back({now_ + pick(3 * 1000), *packet, to_first});
      }
    }
  }
  void deliver() {
    for (std::size_t i = 0; i < way_.size();) {
      if (way_[i].at > now_) {
        ++i;
        continue;
      }
      const on_the_way arrived = way_[i];
      way_.erase(way_.begin() + static_cast<std::ptrdiff_t>(i));
      session& to = arrived.to_first ? first_ : second_;
      const std::uint32_t meant_for = arrived.packet.your_discriminator;
      if (meant_for == 0 || meant_for == to.discriminator()) {
        to.received(arrived.packet, now_);
      }
    }
  }
  // In steps of a millisecond.
  void let_pass(std::uint64_t time) {
    for (const std::uint64_t end = now_ + time; now_ < end; now_ += ms) {
      deliver();
      first_.run(now_);
      second_.run(now_);
      send_from(first_, false);
      send_from(second_, true);
    }
  }
  session_timing any_timing() {
    return {20'000 + pick(400'000), 20'000 + pick(400'000), static_cast<std::uint8_t>(2 + pick(4))};
  }

  std::mt19937 random_{20261122};
  std::uint64_t now_ = 1000 * second;
  bool cut_ = false;
  std::uint32_t loss_ = 0;  // percent
  std::uint64_t packets_ = 0;
  std::vector<on_the_way> way_;
  session first_{1, fast, now_, next_random, &random_};
  session second_{2, fast, now_, next_random, &random_};
};

TEST_F(bfd_pair, comes_up_within_seconds_and_stays_up) {
  let_pass(5 * second);
  EXPECT_EQ(first_.state(), session_state::up);
  EXPECT_EQ(second_.state(), session_state::up);
  const std::uint64_t before = packets_;
  let_pass(60 * second);
  EXPECT_EQ(first_.state(), session_state::up);
  EXPECT_GE(packets_ - before, 2U * 600U);
  EXPECT_LE(packets_ - before, 2U * 800U);
}

TEST_F(bfd_pair, of_which_one_is_disabled_knows_why) {
  let_pass(5 * second);
  second_.disable(now_);
  let_pass(100 * ms);
  EXPECT_EQ(first_.state(), session_state::down);
  EXPECT_EQ(first_.reason(), diagnostic::neighbor_signaled_down);
  EXPECT_EQ(first_.remote_state(), session_state::admin_down);
  let_pass(10 * second);
  second_.enable(now_);
  let_pass(5 * second);
  EXPECT_EQ(first_.state(), session_state::up);
  EXPECT_EQ(second_.state(), session_state::up);
}

// Whatever happens, when the way is whole again both ends are up with the intervals that both know.
TEST_F(bfd_pair, agrees_after_any_disturbance) {
  for (int round = 0; round < 60; ++round) {
    const session_timing timings[] = {any_timing(), any_timing()};
    for (int event = 0; event < 12; ++event) {
      session& one = pick(2) == 0 ? first_ : second_;
      switch (pick(7)) {
        case 0:
          cut_ = !cut_;
          break;
        case 1:
          loss_ = pick(60);
          break;
        case 2:
          one.disable(now_);
          break;
        case 3:
          one.enable(now_);
          break;
        case 4:
          one.lose_path(now_);
          break;
        case 5:
          one.set_timing(any_timing(), now_);
          break;
        default:
          one = session(one.discriminator() + 2, any_timing(), now_, next_random, &random_);
      }
      let_pass(pick(1500) * ms);
    }
    cut_ = false;
    loss_ = 0;
    first_.enable(now_);
    second_.enable(now_);
    first_.set_timing(timings[0], now_);
    second_.set_timing(timings[1], now_);
    let_pass(20 * second);
    ASSERT_EQ(first_.state(), session_state::up) << round;
    ASSERT_EQ(second_.state(), session_state::up) << round;
    const std::uint64_t to_second = std::max(timings[0].desired_min_tx, timings[1].required_min_rx);
    const std::uint64_t to_first = std::max(timings[1].desired_min_tx, timings[0].required_min_rx);
    EXPECT_EQ(first_.transmit_interval(), to_second) << round;
    EXPECT_EQ(second_.transmit_interval(), to_first) << round;
    EXPECT_EQ(first_.detection_time(), timings[1].detect_multiplier * to_first) << round;
    EXPECT_EQ(second_.detection_time(), timings[0].detect_multiplier * to_second) << round;
  }
}

}  // namespace
}  // namespace ot::bfd
