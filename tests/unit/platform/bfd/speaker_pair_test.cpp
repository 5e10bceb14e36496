// Two BFD speakers and two links between them, which delay, lose and damage packets. What must hold
// at every moment is looked at after every event: a session that is up has heard its neighbor
// within the detection time, nothing is overdue, and nobody sends faster than the neighbor wants.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "platform/common/bfd/speaker.h"
#include "tests/support/seeds.h"

namespace ot::bfd {
namespace {

constexpr std::uint64_t ms = 1000;
constexpr std::uint64_t second = 1000 * ms;
constexpr std::uint32_t links = 2;
#ifdef OT_SOAK
constexpr unsigned long rounds = 20'000;
#else
constexpr unsigned long rounds = 300;
#endif

std::uint32_t next_random(void* generator) {
  return static_cast<std::uint32_t>((*static_cast<std::mt19937*>(generator))());
}

// The two, with a session on each link.
struct network {
  // A session of one end, and what is to be checked of it.
  struct spoken {
    spoken_session* session = nullptr;
    session_timing timing;
    std::uint64_t heard_at = 0;
    std::uint64_t packets_in = 0;
    std::uint64_t sent_at = 0;
    std::uint64_t early_until = 0;  // what was sent out of turn uses up, 100 ms each
  };
  struct end final : private speaker::owner {
    end(network& between, std::uint32_t number) : net(between), address(number) {}
    void send(const neighbor_path& path, const control_packet& packet) noexcept override {
      net.sent(*this, path, packet);
    }
    void changed(spoken_session&) noexcept override {}

    network& net;
    std::uint32_t address;
    speaker talks{*this, next_random, &net.random_};
    spoken sessions[links + 1];  // by link
  };
  struct datagram {
    end* to = nullptr;
    std::uint32_t link = 0;
    std::vector<std::byte> bytes;
  };

  explicit network(unsigned long seed = 5880) : random_(static_cast<std::uint32_t>(seed)) {
    for (end* one : {&first_, &second_}) {
      for (std::uint32_t link = 1; link <= links; ++link) want(*one, link);
    }
  }

  std::uint32_t pick(std::uint32_t limit) {
    return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(random_);
  }
  session_timing any_timing() {
    const std::uint32_t slow = pick(5) == 0 ? 800'000 : 0;
    return {slow + 20'000 + pick(400'000), 20'000 + pick(400'000),
            static_cast<std::uint8_t>(1 + pick(5))};
  }
  end& other(const end& one) { return &one == &first_ ? second_ : first_; }
  neighbor_path path_of(end& one, std::uint32_t link) {
    return {link, other(one).address, one.address};
  }

  // --- What can happen ---

  void want(end& one, std::uint32_t link) {
    spoken& told = one.sessions[link];
    if (told.session != nullptr) return;
    const neighbor_path path = path_of(one, link);
    told.timing = any_timing();
    told.session = one.talks.take_back(path, told.timing, now_);
    told.packets_in = told.session == nullptr ? 0 : told.session->packets_in;
    if (told.session == nullptr) {
      told.session = &one.talks.add(told.timing, nullptr, now_);
      one.talks.set_path(*told.session, path, now_);
    }
  }
  void give_up(end& one, std::uint32_t link) {
    if (one.sessions[link].session != nullptr) {
      one.talks.remove(*one.sessions[link].session, now_);
      one.sessions[link].session = nullptr;
    }
  }
  void set_timing(end& one, std::uint32_t link, const session_timing& timing) {
    if (one.sessions[link].session != nullptr) {
      one.sessions[link].timing = timing;
      one.talks.set_timing(*one.sessions[link].session, timing, now_);
    }
  }
  void set_path(end& one, std::uint32_t link, bool there) {
    spoken& told = one.sessions[link];
    if (told.session == nullptr) return;
    if (there) {
      one.talks.set_path(*told.session, path_of(one, link), now_);
    } else {
      one.talks.lose_path(*told.session, now_);
    }
  }
  // Another process goes on with what this one has agreed on.
  void go_on(end& one, std::uint32_t link) {
    spoken& told = one.sessions[link];
    if (told.session == nullptr || !told.session->path ||
        told.session->machine.state() != session_state::up) {
      return;
    }
    const agreed_session agreed = told.session->machine.agreed();
    one.talks.lose_path(*told.session, now_);
    one.talks.remove(*told.session, now_);
    told = {&one.talks.add(told.timing, &agreed, now_), told.timing, now_, 0, 0, 0};
    EXPECT_EQ(told.session->machine.state(), session_state::up);
    one.talks.set_path(*told.session, path_of(one, link), now_);
  }

  // --- The links ---

  void sent(end& from, const neighbor_path& path, const control_packet& packet) {
    check_pace(from.sessions[path.ifindex], packet);
    if (cut_[path.ifindex] || pick(100) < loss_) return;
    const auto written = write_control_packet(packet);
    datagram whole{&other(from), path.ifindex, {written.begin(), written.end()}};
    way_.emplace(arrival(*whole.to, whole.link), whole);
    if (pick(100) < damage_) {
      // Not the intervals nor the multiplier: those can tell a neighbor to be patient for hours.
      constexpr std::size_t places[] = {0, 1, 3, 4, 7, 8, 11, 23};
      whole.bytes[places[pick(std::size(places))]] ^= static_cast<std::byte>(1U << pick(8));
      way_.emplace(arrival(*whole.to, whole.link), whole);
    }
  }
  std::uint64_t arrival(const end& to, std::uint32_t link) {
    const std::uint64_t at = now_ + 1 + pick(longest_delay_);
    std::uint64_t& last = last_arrival_[link][&to == &first_ ? 0 : 1];
    last = std::max(last, at);
    return overtaking_ ? at : last;
  }
  void let_pass(std::uint64_t time) {
    const std::uint64_t until = now_ + time;
    run_both();
    while (!testing::Test::HasFailure()) {
      std::uint64_t next = way_.empty() ? until : way_.begin()->first;
      for (const end* one : {&first_, &second_}) {
        next = std::min(next, one->talks.next_due().value_or(until));
      }
      if (next >= until) break;
      now_ = next;
      while (!way_.empty() && way_.begin()->first <= now_) {
        const datagram arrived = way_.extract(way_.begin()).mapped();
        arrived.to->talks.received(arrived.bytes, {arrived.link, other(*arrived.to).address, 255},
                                   now_);
      }
      run_both();
    }
    now_ = until;
  }
  void run_both() {
    for (end* one : {&first_, &second_}) {
      one->talks.run(now_);
      ASSERT_GT(one->talks.next_due().value_or(now_ + 1), now_) << "overdue";
      for (std::uint32_t link = 1; link <= links; ++link) check_heard(one->sessions[link]);
    }
  }
  void check_heard(spoken& told) {
    if (told.session == nullptr) return;
    if (told.session->packets_in != told.packets_in) {
      told.packets_in = told.session->packets_in;
      told.heard_at = now_;
    }
    const session& machine = told.session->machine;
    if (machine.state() != session_state::up) {
      ASSERT_GE(machine.transmit_interval(), second);
    } else {
      ASSERT_TRUE(told.session->path.has_value());
      ASSERT_GT(machine.detection_time(), 0U);
      ASSERT_LT(now_, told.heard_at + machine.detection_time()) << "up, and hears nothing";
    }
  }
  // News comes out of turn, but, an end apart, a few a second at most; all else no sooner than
  // three quarters of an interval after the last.
  void check_pace(spoken& told, const control_packet& packet) {
    if (told.session == nullptr || packet.final) return;
    if (packet.state == session_state::admin_down) return;
    EXPECT_TRUE(packet.state == session_state::up || packet.desired_min_tx >= 1'000'000U);
    if (now_ - told.sent_at < told.session->machine.transmit_interval() * 3 / 4) {
      told.early_until = std::max(told.early_until, now_) + 100 * ms;
      EXPECT_LE(told.early_until, now_ + 1101 * ms) << "a flood of news";
    }
    told.sent_at = now_;
  }

  void disturb() {
    end& one = pick(2) == 0 ? first_ : second_;
    const std::uint32_t link = 1 + pick(links);
    switch (pick(10)) {
      case 0:
        cut_[link] = !cut_[link];
        break;
      case 1:
        loss_ = pick(60);
        break;
      case 2:
        give_up(one, link);
        break;
      case 3:
        want(one, link);
        break;
      case 4:
        set_path(one, link, false);
        break;
      case 5:
        set_path(one, link, true);
        break;
      case 6:
        overtaking_ = pick(2) == 0;
        longest_delay_ = 1 + pick(300'000);
        break;
      case 7:
        damage_ = pick(50);
        break;
      case 8:
        go_on(one, link);
        break;
      default:
        set_timing(one, link, any_timing());
    }
  }
  void calm() {
    loss_ = damage_ = 0;
    overtaking_ = false;
    longest_delay_ = 2000;
    for (std::uint32_t link = 1; link <= links; ++link) {
      cut_[link] = false;
      for (end* one : {&first_, &second_}) {
        want(*one, link);
        set_path(*one, link, true);
      }
    }
  }
  void expect_agreement(std::uint32_t link) {
    const spoken& here = first_.sessions[link];
    const spoken& there = second_.sessions[link];
    for (const auto& [one, neighbor] : {std::pair{&here, &there}, std::pair{&there, &here}}) {
      const session& machine = one->session->machine;
      ASSERT_EQ(machine.state(), session_state::up);
      EXPECT_EQ(machine.reason(), diagnostic::none);
      EXPECT_EQ(machine.remote_discriminator(), neighbor->session->machine.discriminator());
      const std::uint32_t out =
          std::max(one->timing.desired_min_tx, neighbor->timing.required_min_rx);
      const std::uint32_t in =
          std::max(neighbor->timing.desired_min_tx, one->timing.required_min_rx);
      EXPECT_EQ(machine.transmit_interval(), out);
      EXPECT_EQ(machine.detection_time(), std::uint64_t{in} * neighbor->timing.detect_multiplier);
    }
  }

  std::mt19937 random_;
  std::uint64_t now_ = 1000 * second;
  std::multimap<std::uint64_t, datagram> way_;
  bool cut_[links + 1] = {};
  std::uint32_t loss_ = 0;    // percent
  std::uint32_t damage_ = 0;  // percent: damaged copies beside the packets
  std::uint32_t longest_delay_ = 2000;
  bool overtaking_ = false;
  std::uint64_t last_arrival_[links + 1][2] = {};
  end first_{*this, 0x0100000aU};
  end second_{*this, 0x0200000aU};
};

class bfd_speakers : public testing::Test, public network {};

TEST_F(bfd_speakers, come_up_on_every_link_within_three_seconds) {
  let_pass(3 * second);
  for (std::uint32_t link = 1; link <= links; ++link) {
    EXPECT_EQ(first_.sessions[link].session->machine.state(), session_state::up);
    EXPECT_EQ(second_.sessions[link].session->machine.state(), session_state::up);
  }
  EXPECT_EQ(first_.talks.discarded().all() + second_.talks.discarded().all(), 0U);
}

TEST_F(bfd_speakers, stay_up_for_half_an_hour_while_intervals_change) {
  let_pass(10 * second);
  for (int i = 0; i < 360; ++i) {
    set_timing(pick(2) == 0 ? first_ : second_, 1 + pick(links), any_timing());
    let_pass(5 * second);
    for (std::uint32_t link = 1; link <= links; ++link) expect_agreement(link);
  }
  for (std::uint32_t link = 1; link <= links; ++link) {
    EXPECT_EQ(first_.sessions[link].session->downs + second_.sessions[link].session->downs, 0U);
  }
}

TEST_F(bfd_speakers, notice_no_process_that_goes_on_for_another) {
  let_pass(10 * second);
  for (int i = 0; i < 100; ++i) {
    go_on(first_, 1 + pick(links));
    let_pass(pick(2000) * ms);
  }
  for (std::uint32_t link = 1; link <= links; ++link) {
    EXPECT_EQ(second_.sessions[link].session->downs, 0U);
  }
}

TEST_F(bfd_speakers, tell_the_end_of_a_session_within_the_delay_of_the_link) {
  let_pass(10 * second);
  give_up(first_, 1);
  let_pass(3 * ms);
  const session& told = second_.sessions[1].session->machine;
  EXPECT_EQ(told.state(), session_state::down);
  EXPECT_EQ(told.reason(), diagnostic::neighbor_signaled_down);
  EXPECT_EQ(told.remote_state(), session_state::admin_down);
  EXPECT_EQ(told.remote_reason(), diagnostic::administratively_down);
  EXPECT_EQ(second_.sessions[2].session->machine.state(), session_state::up);
}

TEST(bfd_speakers_model, agree_after_any_disturbance) {
  for (const unsigned seed : test::seeds(rounds)) {
    SCOPED_TRACE(test::shown(seed));
    network tried(seed);
    for (int event = 0; event < 16; ++event) {
      tried.disturb();
      tried.let_pass(tried.pick(1500) * ms);
    }
    tried.calm();
    tried.let_pass(20 * second);
    for (std::uint32_t link = 1; link <= links; ++link) tried.expect_agreement(link);
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace ot::bfd
