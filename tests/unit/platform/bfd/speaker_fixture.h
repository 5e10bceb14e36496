// A BFD speaker on virtual time: a test is its owner and all of its neighbors.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <utility>
#include <vector>

#include "platform/common/bfd/packet.h"
#include "platform/common/bfd/speaker.h"

namespace ot::bfd {

inline constexpr std::uint64_t ms = 1000;
inline constexpr std::uint64_t second = 1000 * ms;
inline constexpr session_timing fast{100'000, 100'000, 3};
inline constexpr neighbor_path here{2, 0x0200000aU, 0x0100000aU};

class bfd_speaker : public testing::Test, private speaker::owner {
 protected:
  struct sent_packet {
    std::uint64_t at = 0;
    neighbor_path path;
    control_packet packet;
  };

  static std::uint32_t any_number(void* generator) {
    return static_cast<std::uint32_t>((*static_cast<std::mt19937*>(generator))());
  }
  void send(const neighbor_path& path, const control_packet& packet) noexcept override {
    sent_.push_back({now_, path, packet});
  }
  void changed(spoken_session& session) noexcept override { changed_.push_back(&session); }

  spoken_session& add(const neighbor_path& path = here, const session_timing& timing = fast) {
    spoken_session& session = speaker_.add(timing, nullptr, now_);
    speaker_.set_path(session, path, now_);
    speaker_.run(now_);
    return session;
  }
  // A neighbor's packet for the session; one in the state down does not know us.
  static control_packet from_neighbor(const spoken_session& to, session_state state) {
    control_packet packet;
    packet.state = state;
    packet.detect_multiplier = 3;
    packet.my_discriminator = 77;
    packet.your_discriminator = state == session_state::down ? 0 : to.machine.discriminator();
    packet.desired_min_tx = 100'000;
    packet.required_min_rx = 100'000;
    return packet;
  }
  // It comes over the path.
  void hear(const control_packet& packet, const neighbor_path& path = here, int ttl = 255) {
    speaker_.received(write_control_packet(packet), {path.ifindex, path.destination, ttl}, now_);
    speaker_.run(now_);
  }
  void bring_up(spoken_session& session, const neighbor_path& path = here) {
    hear(from_neighbor(session, session_state::down), path);
    hear(from_neighbor(session, session_state::init), path);
    control_packet agreement = from_neighbor(session, session_state::up);
    agreement.final = true;
    hear(agreement, path);
    ASSERT_EQ(session.machine.state(), session_state::up);
    sent_.clear();
    changed_.clear();
  }
  spoken_session& add_up(const neighbor_path& path = here, const session_timing& timing = fast) {
    spoken_session& session = add(path, timing);
    bring_up(session, path);
    return session;
  }
  // Does all that is due until then. False when nothing is due any more.
  bool run_until(std::uint64_t end) {
    for (auto due = speaker_.next_due(); due && *due <= end; due = speaker_.next_due()) {
      EXPECT_GT(*due, now_) << "due already, although it was run";
      now_ = std::max(now_, *due);
      speaker_.run(now_);
      if (HasFailure()) break;
    }
    now_ = std::max(now_, end);
    return speaker_.next_due().has_value();
  }
  std::vector<sent_packet> take_sent() { return std::exchange(sent_, {}); }

  std::mt19937 random_{5881};
  std::uint64_t now_ = 1000 * second;
  speaker speaker_{*this, any_number, &random_};
  std::vector<sent_packet> sent_;
  std::vector<spoken_session*> changed_;
};

}  // namespace ot::bfd
