// Which session a packet is for, and which packets are for none.
#include "platform/common/bfd/speaker.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>
#include <vector>

#include "tests/unit/platform/bfd/speaker_fixture.h"

namespace ot::bfd {
namespace {

using bytes = std::vector<std::byte>;
constexpr neighbor_path there{3, 0x0200000aU, 0x0101000aU};       // the same address elsewhere
constexpr neighbor_path next_to_it{2, 0x0300000aU, 0x0100000aU};  // another one on the link
constexpr neighbor_path nowhere{9, 0x0900000aU, 0x0100000aU};

bytes datagram(const control_packet& packet) {
  const auto written = write_control_packet(packet);
  return {written.begin(), written.end()};
}

TEST_F(bfd_speaker, knows_a_neighbor_that_does_not_know_it_by_interface_and_address) {
  spoken_session& first = add(here);
  spoken_session& elsewhere = add(there);
  spoken_session& beside = add(next_to_it);
  hear(from_neighbor(elsewhere, session_state::down), there);
  EXPECT_EQ(first.machine.state(), session_state::down);
  EXPECT_EQ(elsewhere.machine.state(), session_state::init);
  EXPECT_EQ(beside.machine.state(), session_state::down);
  hear(from_neighbor(beside, session_state::down), next_to_it);
  EXPECT_EQ(first.machine.state(), session_state::down);
  EXPECT_EQ(beside.machine.state(), session_state::init);
  EXPECT_EQ(speaker_.discarded().all(), 0U);
}

TEST_F(bfd_speaker, drops_the_packet_of_a_neighbor_that_nobody_speaks_with) {
  spoken_session& session = add(here);
  const control_packet hello = from_neighbor(session, session_state::down);
  hear(hello, {here.ifindex, nowhere.destination, 0});
  hear(hello, {nowhere.ifindex, here.destination, 0});
  EXPECT_EQ(speaker_.discarded().no_session, 2U);
  EXPECT_EQ(speaker_.discarded().all(), 2U);
  EXPECT_EQ(session.machine.state(), session_state::down);
  EXPECT_EQ(session.packets_in, 0U);
}

TEST_F(bfd_speaker, drops_the_packet_for_a_discriminator_that_nobody_has) {
  spoken_session& session = add(here);
  control_packet packet = from_neighbor(session, session_state::init);
  packet.your_discriminator ^= 1;
  hear(packet);
  EXPECT_EQ(speaker_.discarded().no_session, 1U);
  EXPECT_EQ(session.machine.state(), session_state::down);
}

// What one neighbor says must not be taken for the word of another, whatever number it knows.
TEST_F(bfd_speaker, lets_no_neighbor_speak_for_another) {
  spoken_session& first = add_up(here);
  spoken_session& other = add_up(next_to_it);
  control_packet packet = from_neighbor(first, session_state::admin_down);
  hear(packet, next_to_it);
  hear(packet, nowhere);
  hear(packet, there);
  EXPECT_EQ(first.machine.state(), session_state::up);
  EXPECT_EQ(other.machine.state(), session_state::up);
  EXPECT_EQ(speaker_.discarded().no_session, 3U);
}

TEST_F(bfd_speaker, takes_no_packet_that_may_have_come_from_afar) {
  spoken_session& session = add(here);
  for (const int ttl : {254, 64, 1, 0, -1, 256}) {
    hear(from_neighbor(session, session_state::down), here, ttl);
  }
  EXPECT_EQ(speaker_.discarded().ttl, 6U);
  EXPECT_EQ(session.machine.state(), session_state::down);
  EXPECT_EQ(session.packets_in, 0U);
  EXPECT_EQ(session.machine.remote_discriminator(), 0U);
}

struct bad_packet {
  discard expected;
  std::function<void(bytes&)> damage;
};

TEST_F(bfd_speaker, counts_what_it_drops_by_reason_and_does_nothing_else) {
  const auto octet = [](std::size_t at, unsigned value) {
    return [=](bytes& packet) { packet[at] = static_cast<std::byte>(value); };
  };
  const auto clear_word = [](std::size_t at) {
    return [=](bytes& packet) { std::fill_n(packet.begin() + std::ptrdiff_t(at), 4, std::byte{}); };
  };
  const bad_packet rows[] = {
      {discard::truncated, [](bytes& packet) { packet.resize(23); }},
      {discard::truncated, [](bytes& packet) { packet.clear(); }},
      {discard::version, octet(0, 0x00)},
      {discard::version, octet(0, 0x40)},
      {discard::version, octet(0, 0xe0)},
      {discard::length, octet(3, 23)},
      {discard::length, octet(3, 0)},
      {discard::length, octet(3, 25)},
      {discard::length, octet(3, 255)},
      {discard::multiplier, octet(2, 0)},
      {discard::multipoint, [](bytes& packet) { packet[1] |= std::byte{0x01}; }},
      {discard::my_discriminator, clear_word(4)},
      {discard::your_discriminator, clear_word(8)},
      {discard::authentication,
       [](bytes& packet) {
         packet[1] |= std::byte{0x04};
         packet.resize(28, std::byte{4});
         packet[3] = std::byte{28};
       }},
  };
  spoken_session& session = add_up();
  const auto due = speaker_.next_due();
  const std::uint64_t taken = session.packets_in;
  now_ += ms;
  for (const bad_packet& row : rows) {
    SCOPED_TRACE(static_cast<int>(row.expected));
    bytes packet = datagram(from_neighbor(session, session_state::admin_down));
    packet[1] = (packet[1] & std::byte{0x3f}) | std::byte{0x40};  // down: it would take us down
    if (row.expected == discard::your_discriminator) packet[1] |= std::byte{0xc0};
    row.damage(packet);
    const discarded_packets before = speaker_.discarded();
    speaker_.received(packet, {here.ifindex, here.destination, 255}, now_);
    speaker_.run(now_);
    discarded_packets expected = before;
    ++expected.malformed[static_cast<std::size_t>(row.expected)];
    EXPECT_EQ(speaker_.discarded().malformed, expected.malformed);
    EXPECT_EQ(speaker_.discarded().all(), expected.all());
    EXPECT_EQ(session.machine.state(), session_state::up);
    EXPECT_EQ(session.packets_in, taken);
    EXPECT_EQ(speaker_.next_due(), due);
  }
  EXPECT_TRUE(sent_.empty());
  EXPECT_TRUE(changed_.empty());
}

// A neighbor that has begun anew: it may know ours from before no more.
TEST_F(bfd_speaker, takes_the_word_of_a_neighbor_that_begins_anew) {
  spoken_session& session = add_up();
  control_packet again = from_neighbor(session, session_state::down);
  again.my_discriminator = 78;
  hear(again);
  EXPECT_EQ(session.machine.state(), session_state::down);
  EXPECT_EQ(session.machine.reason(), diagnostic::neighbor_signaled_down);
  hear(again);
  EXPECT_EQ(session.machine.state(), session_state::init);
  EXPECT_EQ(session.machine.remote_discriminator(), 78U);
  ASSERT_FALSE(sent_.empty());
  EXPECT_EQ(sent_.back().packet.your_discriminator, 78U);
}

TEST_F(bfd_speaker, gives_every_session_a_discriminator_of_its_own) {
  // A generator that says each number four times, and 0 as well.
  std::uint32_t calls = 0;
  const auto stubborn = [](void* context) { return (*static_cast<std::uint32_t*>(context))++ / 4; };
  class nobody final : public speaker::owner {
    void send(const neighbor_path&, const control_packet&) noexcept override {}
    void changed(spoken_session&) noexcept override {}
  } nobody_told;
  speaker tested(nobody_told, stubborn, &calls);
  std::set<std::uint32_t> numbers;
  for (int i = 0; i < 500; ++i) {
    numbers.insert(tested.add(fast, nullptr, now_).machine.discriminator());
  }
  EXPECT_EQ(numbers.size(), 500U);
  EXPECT_EQ(numbers.count(0), 0U);
}

TEST_F(bfd_speaker, has_nothing_to_do_without_sessions_that_have_a_path) {
  EXPECT_EQ(speaker_.next_due(), std::nullopt);
  spoken_session& session = speaker_.add(fast, nullptr, now_);
  EXPECT_EQ(speaker_.next_due(), std::nullopt) << "it has no path";
  speaker_.run(now_);
  EXPECT_FALSE(run_until(now_ + 60 * second));
  EXPECT_TRUE(sent_.empty());
  EXPECT_FALSE(speaker_.empty());
  speaker_.remove(session, now_);
  EXPECT_TRUE(speaker_.empty()) << "nobody need be told";
}

}  // namespace
}  // namespace ot::bfd
