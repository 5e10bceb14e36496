// A speaker's sessions from their beginning to their end: their pace, the way to the neighbor that
// goes and comes, removal, and another process that goes on.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/common/bfd/speaker.h"
#include "tests/unit/platform/bfd/speaker_fixture.h"

namespace ot::bfd {
namespace {

constexpr neighbor_path moved{4, here.destination, 0x0104000aU};

class bfd_speaker_sessions : public bfd_speaker {
 protected:
  struct bounds {
    std::uint64_t least;
    std::uint64_t most;
  };
  // Between the packets of one session, while its neighbor keeps it in that state.
  bounds paces(spoken_session& session, session_state neighbor, int packets) {
    std::vector<std::uint64_t> times;
    while (times.size() < static_cast<std::size_t>(packets)) {
      if (neighbor == session_state::up) hear(from_neighbor(session, neighbor));
      run_until(now_ + 5 * ms);
      for (const sent_packet& packet : take_sent()) times.push_back(packet.at);
    }
    bounds found{UINT64_MAX, 0};
    for (std::size_t i = 1; i < times.size(); ++i) {
      found.least = std::min(found.least, times[i] - times[i - 1]);
      found.most = std::max(found.most, times[i] - times[i - 1]);
    }
    return found;
  }
  // What one process leaves to the next.
  agreed_session left_by_another() {
    agreed_session agreed{4711, 100'000, 100'000, {}};
    agreed.remote.state = session_state::up;
    agreed.remote.detect_multiplier = 3;
    agreed.remote.my_discriminator = 77;
    agreed.remote.your_discriminator = 4711;
    agreed.remote.desired_min_tx = 100'000;
    agreed.remote.required_min_rx = 100'000;
    return agreed;
  }
};

TEST_F(bfd_speaker_sessions, begin_with_a_packet_and_send_one_a_second_at_most) {
  spoken_session& session = add();
  run_until(now_ + second);
  ASSERT_FALSE(sent_.empty());
  const control_packet& first = sent_[0].packet;
  EXPECT_EQ(sent_[0].path, here);
  EXPECT_EQ(first.state, session_state::down);
  EXPECT_EQ(first.reason, diagnostic::none);
  EXPECT_EQ(first.your_discriminator, 0U);
  EXPECT_EQ(first.my_discriminator, session.machine.discriminator());
  EXPECT_EQ(first.detect_multiplier, 3U);
  EXPECT_GE(first.desired_min_tx, 1'000'000U);
  EXPECT_EQ(first.required_min_rx, 100'000U);
  EXPECT_EQ(first.required_min_echo_rx, 0U) << "an echo would not be returned";
  EXPECT_FALSE(first.demand || first.poll || first.final || first.authentication);
  take_sent();
  const bounds pace = paces(session, session_state::down, 500);
  EXPECT_GE(pace.least, 750 * ms);
  EXPECT_LE(pace.most, second);
  EXPECT_GT(pace.most, pace.least + 200 * ms) << "spread";
}

TEST_F(bfd_speaker_sessions, that_are_up_send_at_three_quarters_of_the_interval_at_least) {
  const bounds pace = paces(add_up(), session_state::up, 500);
  EXPECT_GE(pace.least, 75 * ms);
  EXPECT_LE(pace.most, 100 * ms);
  EXPECT_GT(pace.most, pace.least + 20 * ms) << "spread";
}

TEST_F(bfd_speaker_sessions, with_multiplier_1_send_at_nine_tenths_of_the_interval_at_most) {
  const bounds pace = paces(add_up(here, {100'000, 100'000, 1}), session_state::up, 500);
  EXPECT_GE(pace.least, 75 * ms);
  EXPECT_LE(pace.most, 90 * ms);
  EXPECT_GT(pace.most, pace.least + 10 * ms) << "spread";
}

TEST_F(bfd_speaker_sessions, keep_to_the_shortest_intervals) {
  spoken_session& session = add_up(here, {1000, 1000, 5});
  control_packet brisk = from_neighbor(session, session_state::up);
  brisk.required_min_rx = 1;
  hear(brisk);
  take_sent();
  run_until(now_ + 100 * ms);
  EXPECT_GE(sent_.size(), 99U);
  EXPECT_LE(sent_.size(), 134U);
}

TEST_F(bfd_speaker_sessions, slow_an_interval_down_only_when_the_neighbor_has_agreed) {
  spoken_session& session = add_up();
  speaker_.set_timing(session, {400'000, 100'000, 3}, now_);
  speaker_.run(now_);
  const bounds before = paces(session, session_state::up, 20);
  EXPECT_LE(before.most, 100 * ms);
  control_packet agreement = from_neighbor(session, session_state::up);
  agreement.final = true;
  hear(agreement);
  take_sent();
  const bounds after = paces(session, session_state::up, 20);
  EXPECT_GE(after.least, 300 * ms);
}

TEST_F(bfd_speaker_sessions, tell_another_multiplier_at_once) {
  spoken_session& session = add_up();
  run_until(now_ + 10 * ms);
  take_sent();
  speaker_.set_timing(session, {100'000, 100'000, 7}, now_);
  ASSERT_EQ(sent_.size(), 1U);
  EXPECT_EQ(sent_[0].packet.detect_multiplier, 7U);
  EXPECT_FALSE(sent_[0].packet.poll) << "which needs no agreement";
}

TEST_F(bfd_speaker_sessions, owe_a_neighbor_that_wants_more_what_is_due_by_then) {
  spoken_session& session = add_up();
  control_packet patient = from_neighbor(session, session_state::up);
  patient.required_min_rx = 2'000'000;
  patient.detect_multiplier = 100;
  run_until(now_ + 100 * ms);
  hear(patient);
  take_sent();
  run_until(now_ + second);
  EXPECT_TRUE(sent_.empty());
  hear(from_neighbor(session, session_state::up));
  EXPECT_EQ(sent_.size(), 1U);
}

// With what the neighbor never agreed to: there is nobody to agree any more.
TEST_F(bfd_speaker_sessions, that_fall_want_what_they_were_last_told_to_at_once) {
  spoken_session& session = add_up();
  speaker_.set_timing(session, {1'000'000, 50'000, 3}, now_);
  run_until(now_ + second);
  ASSERT_EQ(session.machine.state(), session_state::down);
  take_sent();
  const bounds pace = paces(session, session_state::down, 20);
  EXPECT_GE(pace.least, 750 * ms);
  control_packet brisk = from_neighbor(session, session_state::down);
  brisk.desired_min_tx = 10'000;
  hear(brisk);
  EXPECT_EQ(session.machine.detection_time(), 150 * ms);
}

TEST_F(bfd_speaker_sessions, poll_until_the_neighbor_has_agreed) {
  spoken_session& session = add_up();
  speaker_.set_timing(session, {50'000, 50'000, 5}, now_);
  speaker_.run(now_);
  for (int i = 0; i < 10; ++i) {
    hear(from_neighbor(session, session_state::up));
    run_until(now_ + 90 * ms);
  }
  ASSERT_GE(sent_.size(), 5U);
  for (const sent_packet& sent : take_sent()) {
    EXPECT_TRUE(sent.packet.poll);
    EXPECT_EQ(sent.packet.desired_min_tx, 50'000U);
    EXPECT_EQ(sent.packet.required_min_rx, 50'000U);
    EXPECT_EQ(sent.packet.detect_multiplier, 5U);
  }
  control_packet agreement = from_neighbor(session, session_state::up);
  agreement.final = true;
  hear(agreement);
  take_sent();
  hear(from_neighbor(session, session_state::up));
  run_until(now_ + 250 * ms);
  ASSERT_FALSE(sent_.empty());
  for (const sent_packet& sent : sent_) EXPECT_FALSE(sent.packet.poll);
}

TEST_F(bfd_speaker_sessions, answer_a_poll_at_once_in_any_state) {
  spoken_session& session = add();
  for (const auto state : {session_state::down, session_state::init, session_state::up}) {
    take_sent();
    control_packet poll = from_neighbor(session, state);
    poll.poll = true;
    hear(poll);
    const auto answers = std::count_if(sent_.begin(), sent_.end(), [](const sent_packet& sent) {
      return sent.packet.final && !sent.packet.poll;
    });
    EXPECT_EQ(answers, 1) << static_cast<int>(state);
  }
}

// Two ends whose packets overtake each other could else raise a storm: each packet that changes a
// state would bring forth another, and a poll two.
TEST_F(bfd_speaker_sessions, answer_a_flood_of_changes_with_a_few_packets_a_second) {
  spoken_session& session = add();
  const std::uint64_t began = now_;
  for (; now_ < began + 10 * second; run_until(now_ + ms)) {
    hear(from_neighbor(
        session, (now_ - began) % (2 * ms) == 0 ? session_state::down : session_state::admin_down));
  }
  EXPECT_LE(sent_.size(), 150U);
  hear(from_neighbor(session, session_state::down));
  hear(from_neighbor(session, session_state::init));
  ASSERT_EQ(session.machine.state(), session_state::up);
  take_sent();
  run_until(now_ + 100 * ms);
  ASSERT_FALSE(sent_.empty()) << "but what is so in the end is told";
  EXPECT_EQ(sent_[0].packet.state, session_state::up);
  take_sent();
  for (int i = 0; i < 20; ++i) {
    hear(from_neighbor(session, session_state::up));
    run_until(now_ + 100 * ms);
  }
  take_sent();
  hear(from_neighbor(session, session_state::down));
  EXPECT_EQ(sent_.size(), 1U) << "a change after a while is told at once";
}

TEST_F(bfd_speaker_sessions, tell_their_end_whatever_they_told_before) {
  spoken_session& session = add();
  for (int i = 0; i < 100; ++i) {
    hear(from_neighbor(session, session_state::down));
    hear(from_neighbor(session, session_state::admin_down));
  }
  take_sent();
  speaker_.say_farewell(now_);
  ASSERT_EQ(sent_.size(), 1U);
  EXPECT_EQ(sent_[0].packet.state, session_state::admin_down);
}

// An owner takes the time once for all that is due, and reads packets after that.
TEST_F(bfd_speaker_sessions, are_not_ended_by_a_packet_that_came_after_what_is_due_now) {
  spoken_session& session = add_up();
  const std::uint64_t began = now_;
  now_ = began + 50 * ms;
  speaker_.received(write_control_packet(from_neighbor(session, session_state::up)),
                    {here.ifindex, here.destination, 255}, now_);
  session.machine.run(began);
  EXPECT_EQ(session.machine.state(), session_state::up);
}

TEST_F(bfd_speaker_sessions, in_init_go_down_with_a_neighbor_that_falls_silent) {
  spoken_session& session = add();
  hear(from_neighbor(session, session_state::down));
  ASSERT_EQ(session.machine.state(), session_state::init);
  run_until(now_ + 300 * ms - 1);
  EXPECT_EQ(session.machine.state(), session_state::init);
  run_until(now_ + 1);
  EXPECT_EQ(session.machine.state(), session_state::down);
  EXPECT_EQ(session.machine.reason(), diagnostic::detection_time_expired);
}

// Otherwise a neighbor that wanted nothing, and begins anew and waits for us, would wait for ever.
TEST_F(bfd_speaker_sessions, speak_again_to_a_neighbor_that_wanted_nothing_and_is_gone) {
  spoken_session& session = add_up();
  control_packet silence = from_neighbor(session, session_state::up);
  silence.required_min_rx = 0;
  hear(silence);
  take_sent();
  run_until(now_ + 299 * ms);
  EXPECT_TRUE(sent_.empty());
  run_until(now_ + 2 * second);
  EXPECT_EQ(session.machine.state(), session_state::down);
  EXPECT_FALSE(sent_.empty());
}

TEST_F(bfd_speaker_sessions, are_down_without_a_path_and_neither_speak_nor_listen) {
  spoken_session& session = add_up();
  speaker_.lose_path(session, now_);
  EXPECT_EQ(session.machine.state(), session_state::down);
  EXPECT_EQ(session.machine.reason(), diagnostic::path_down);
  EXPECT_EQ(session.path, std::nullopt);
  EXPECT_EQ(std::count(changed_.begin(), changed_.end(), &session), 1);
  EXPECT_EQ(speaker_.next_due(), std::nullopt);
  take_sent();
  hear(from_neighbor(session, session_state::down));
  hear(from_neighbor(session, session_state::init));
  EXPECT_EQ(speaker_.discarded().no_session, 2U);
  EXPECT_FALSE(run_until(now_ + 10 * second));
  EXPECT_TRUE(sent_.empty());
}

TEST_F(bfd_speaker_sessions, come_up_again_on_another_path_and_only_there) {
  spoken_session& session = add_up();
  speaker_.set_path(session, moved, now_);
  speaker_.run(now_);
  EXPECT_EQ(session.machine.state(), session_state::down) << "begins anew";
  hear(from_neighbor(session, session_state::down), here);
  EXPECT_EQ(session.machine.state(), session_state::down);
  EXPECT_EQ(speaker_.discarded().no_session, 1U);
  bring_up(session, moved);
  run_until(now_ + 200 * ms);
  ASSERT_FALSE(sent_.empty());
  EXPECT_EQ(sent_[0].path, moved);
}

TEST_F(bfd_speaker_sessions, that_keep_their_path_notice_nothing) {
  spoken_session& session = add_up();
  speaker_.set_path(session, here, now_);
  speaker_.run(now_);
  EXPECT_EQ(session.machine.state(), session_state::up);
  EXPECT_TRUE(changed_.empty());
}

TEST_F(bfd_speaker_sessions, that_are_removed_tell_it_while_the_neighbor_would_wait_and_are_gone) {
  spoken_session& session = add_up();
  const std::uint64_t removed = now_;
  speaker_.remove(session, now_);
  speaker_.run(now_);
  ASSERT_EQ(sent_.size(), 1U) << "at once";
  EXPECT_FALSE(run_until(now_ + 60 * second)) << "silent in the end";
  for (const sent_packet& sent : sent_) {
    EXPECT_EQ(sent.packet.state, session_state::admin_down);
    EXPECT_EQ(sent.packet.reason, diagnostic::administratively_down);
    EXPECT_LE(sent.packet.desired_min_tx, 1'000'000U);
  }
  EXPECT_GE(sent_.back().at - removed, 300 * ms) << "its detection time";
  EXPECT_TRUE(speaker_.empty());
  EXPECT_TRUE(changed_.empty()) << "nothing is reported of it any more";
  hear(from_neighbor(add(), session_state::down));
  EXPECT_EQ(speaker_.discarded().all(), 0U) << "its place is free";
}

TEST_F(bfd_speaker_sessions, that_are_removed_without_a_path_are_gone_at_once) {
  spoken_session& session = add_up();
  speaker_.lose_path(session, now_);
  speaker_.remove(session, now_);
  EXPECT_TRUE(speaker_.empty());
  EXPECT_EQ(speaker_.next_due(), std::nullopt);
}

TEST_F(bfd_speaker_sessions, that_are_given_up_are_not_woken_by_the_neighbor) {
  spoken_session& session = add_up();
  speaker_.remove(session, now_);
  hear(from_neighbor(session, session_state::down));
  hear(from_neighbor(session, session_state::init));
  EXPECT_EQ(session.machine.state(), session_state::admin_down);
  EXPECT_TRUE(changed_.empty());
  // Nor does a neighbor that speaks for ever keep them from ending.
  for (int i = 0; i < 100 && !speaker_.empty(); ++i) {
    run_until(now_ + 100 * ms);
    if (!speaker_.empty()) hear(from_neighbor(session, session_state::down));
  }
  EXPECT_TRUE(speaker_.empty());
}

TEST_F(bfd_speaker_sessions, that_are_being_given_up_can_be_wanted_again) {
  spoken_session& session = add_up();
  EXPECT_EQ(speaker_.take_back(here, fast, now_), nullptr) << "it is not being given up";
  speaker_.remove(session, now_);
  speaker_.run(now_);
  EXPECT_EQ(speaker_.take_back(moved, fast, now_), nullptr);
  constexpr session_timing other{200'000, 200'000, 4};
  spoken_session* const again = speaker_.take_back(here, other, now_);
  ASSERT_EQ(again, &session);
  EXPECT_EQ(again->machine.state(), session_state::down);
  EXPECT_FALSE(again->leaving);
  bring_up(*again);
  EXPECT_EQ(again->machine.detection_time(), 600 * ms);
  EXPECT_TRUE(run_until(now_ + 60 * second));
  EXPECT_FALSE(speaker_.empty());
  EXPECT_FALSE(changed_.empty()) << "it is reported of again";
}

TEST_F(bfd_speaker_sessions, that_are_being_given_up_are_silent_for_another_on_their_path) {
  speaker_.remove(add_up(), now_);
  take_sent();
  const std::uint32_t other = add().machine.discriminator();
  run_until(now_ + 5 * second);
  ASSERT_FALSE(sent_.empty());
  for (const sent_packet& sent : sent_) {
    EXPECT_EQ(sent.packet.my_discriminator, other);
    EXPECT_EQ(sent.packet.state, session_state::down);
  }
}

TEST_F(bfd_speaker_sessions, all_tell_their_end_at_once) {
  add_up();
  add({2, 0x0300000aU, 0x0100000aU});
  spoken_session& stray = add_up({3, 0x0400000aU, 0x0101000aU});
  speaker_.lose_path(stray, now_);
  take_sent();
  changed_.clear();
  speaker_.say_farewell(now_);
  ASSERT_EQ(sent_.size(), 2U);
  for (const sent_packet& sent : sent_) {
    EXPECT_EQ(sent.packet.state, session_state::admin_down);
    EXPECT_EQ(sent.packet.reason, diagnostic::administratively_down);
  }
}

TEST_F(bfd_speaker_sessions, go_on_after_another_process) {
  const agreed_session left = left_by_another();
  spoken_session& session = speaker_.add(fast, &left, now_);
  speaker_.set_path(session, here, now_);
  speaker_.run(now_);
  EXPECT_EQ(session.machine.state(), session_state::up);
  EXPECT_EQ(session.machine.discriminator(), 4711U);
  EXPECT_EQ(session.machine.agreed(), left);
  run_until(now_ + 100 * ms);
  ASSERT_FALSE(sent_.empty());
  EXPECT_EQ(sent_[0].packet.state, session_state::up);
  EXPECT_EQ(sent_[0].packet.my_discriminator, 4711U);
  EXPECT_EQ(sent_[0].packet.your_discriminator, 77U);
  EXPECT_EQ(sent_[0].packet.desired_min_tx, 100'000U);
  hear(from_neighbor(session, session_state::up));
  run_until(now_ + 299 * ms);
  EXPECT_EQ(session.machine.state(), session_state::up);
  EXPECT_EQ(session.downs, 0U);
}

TEST_F(bfd_speaker_sessions, that_go_on_end_with_a_neighbor_that_is_not_heard_again) {
  const agreed_session left = left_by_another();
  spoken_session& session = speaker_.add(fast, &left, now_);
  speaker_.set_path(session, here, now_);
  run_until(now_ + 300 * ms - 1);
  EXPECT_EQ(session.machine.state(), session_state::up);
  run_until(now_ + 1);
  EXPECT_EQ(session.machine.state(), session_state::down);
  EXPECT_EQ(session.machine.reason(), diagnostic::detection_time_expired);
}

TEST_F(bfd_speaker_sessions, that_would_go_on_with_a_discriminator_in_use_get_another) {
  const agreed_session left = left_by_another();
  spoken_session& first = speaker_.add(fast, &left, now_);
  spoken_session& second_one = speaker_.add(fast, &left, now_);
  EXPECT_EQ(first.machine.discriminator(), 4711U);
  EXPECT_NE(second_one.machine.discriminator(), 4711U);
  EXPECT_EQ(second_one.machine.state(), session_state::down);
}

TEST_F(bfd_speaker_sessions, count_their_packets_and_how_often_they_rose_and_fell) {
  spoken_session& session = add();
  for (std::uint32_t i = 1; i <= 3; ++i) {
    bring_up(session);
    EXPECT_EQ(session.ups, i);
    hear(from_neighbor(session, session_state::admin_down));
    EXPECT_EQ(session.downs, i);
  }
  EXPECT_EQ(session.packets_in, 12U);
  const std::uint64_t before = session.packets_out;
  take_sent();
  run_until(now_ + 10 * second);
  EXPECT_EQ(session.packets_out - before, sent_.size());
}

}  // namespace
}  // namespace ot::bfd
