// BFD control packets: what is on the wire, and which are of no use.
#include "platform/common/bfd/packet.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <utility>
#include <vector>

namespace ot::bfd {
namespace {

using bytes = std::vector<std::byte>;

// Up, diagnostic 1, final, multiplier 3, discriminators 1 and 2, 100 ms, 200 ms, no echo.
bytes good() {
  const unsigned char octets[] = {0x21, 0xd0, 3,    24,   0, 0, 0,    1,    0, 0, 0, 2,
                                  0,    1,    0x86, 0xa0, 0, 3, 0x0d, 0x40, 0, 0, 0, 0};
  bytes datagram;
  for (const unsigned char octet : octets) {
    datagram.push_back(static_cast<std::byte>(octet));
  }
  return datagram;
}

bytes good_but(std::size_t at, unsigned value) {
  bytes datagram = good();
  datagram[at] = static_cast<std::byte>(value);
  return datagram;
}

discard read(const bytes& datagram) {
  control_packet packet;
  return read_control_packet(datagram, &packet);
}

TEST(bfd_packet, is_read_as_it_is_on_the_wire) {
  control_packet packet;
  ASSERT_EQ(read_control_packet(good(), &packet), discard::none);
  control_packet expected;
  expected.state = session_state::up;
  expected.reason = diagnostic::detection_time_expired;
  expected.final = true;
  expected.detect_multiplier = 3;
  expected.my_discriminator = 1;
  expected.your_discriminator = 2;
  expected.desired_min_tx = 100'000;
  expected.required_min_rx = 200'000;
  EXPECT_EQ(packet, expected);
  const auto written = write_control_packet(packet);
  EXPECT_EQ(bytes(written.begin(), written.end()), good());
}

TEST(bfd_packet, is_discarded_for_the_first_thing_that_is_wrong) {
  const bytes whole = good();
  EXPECT_EQ(read({}), discard::truncated);
  EXPECT_EQ(read(bytes(whole.begin(), whole.end() - 1)), discard::truncated);
  EXPECT_EQ(read(good_but(0, 0x01)), discard::version);
  EXPECT_EQ(read(good_but(0, 0x41)), discard::version);
  EXPECT_EQ(read(good_but(3, 23)), discard::length);
  EXPECT_EQ(read(good_but(3, 25)), discard::length) << "longer than what came";
  EXPECT_EQ(read(good_but(2, 0)), discard::multiplier);
  EXPECT_EQ(read(good_but(1, 0xd1)), discard::multipoint);
  EXPECT_EQ(read(good_but(7, 0)), discard::my_discriminator);
  EXPECT_EQ(read(good_but(11, 0)), discard::your_discriminator);
}

TEST(bfd_packet, may_lack_our_discriminator_only_while_it_cannot_be_known) {
  bytes datagram = good_but(11, 0);
  for (const auto& [octet, expected] :
       {std::pair{0x00, discard::none}, std::pair{0x40, discard::none},
        std::pair{0x80, discard::your_discriminator},
        std::pair{0xc0, discard::your_discriminator}}) {
    datagram[1] = static_cast<std::byte>(octet);
    EXPECT_EQ(read(datagram), expected) << octet;
  }
}

TEST(bfd_packet, with_authentication_is_longer_and_none_of_ours) {
  bytes datagram = good_but(1, 0xc4);
  EXPECT_EQ(read(datagram), discard::length) << "no room for a section";
  datagram.resize(26);
  datagram[3] = std::byte{26};
  EXPECT_EQ(read(datagram), discard::authentication);
}

TEST(bfd_packet, may_be_followed_by_anything) {
  bytes datagram = good();
  datagram.resize(100, std::byte{0xff});
  EXPECT_EQ(read(datagram), discard::none);
}

TEST(bfd_packet, is_written_as_it_was_read) {
  std::mt19937 random(5880);
  for (int i = 0; i < 10'000; ++i) {
    bytes datagram(control_packet_size);
    for (std::byte& octet : datagram) {
      octet = static_cast<std::byte>(random() & 0xff);
    }
    datagram[0] = static_cast<std::byte>(0x20 | (random() & 0x1f));
    datagram[1] &= std::byte{0xfa};
    datagram[3] = std::byte{24};
    control_packet packet;
    if (read_control_packet(datagram, &packet) == discard::none) {
      const auto written = write_control_packet(packet);
      EXPECT_EQ(bytes(written.begin(), written.end()), datagram);
    }
  }
}

}  // namespace
}  // namespace ot::bfd
