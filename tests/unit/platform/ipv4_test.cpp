// IPv4 masks in network byte order, checked against every prefix length.
#include "platform/ipv4.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

namespace ot {
namespace {

TEST(ipv4, every_prefix_length_is_contiguous_and_comes_back) {
  for (std::uint32_t length = 0; length <= 32; ++length) {
    const std::uint32_t mask = length == 0 ? 0 : htonl(0xFFFFFFFFU << (32 - length));
    EXPECT_TRUE(ipv4_mask_is_contiguous(mask)) << length;
    EXPECT_EQ(ipv4_mask2prefixlen(mask), length);
  }
}

TEST(ipv4, one_wrong_bit_makes_a_mask_broken) {
  for (std::uint32_t length = 0; length <= 32; ++length) {
    const std::uint32_t host = length == 0 ? 0 : 0xFFFFFFFFU << (32 - length);
    for (std::uint32_t bit = 0; bit < 32; ++bit) {
      // Turning over the bit next to the run's end gives another contiguous mask.
      const bool at_the_end = bit + length == 31 || bit + length == 32;
      EXPECT_EQ(ipv4_mask_is_contiguous(htonl(host ^ (1U << bit))), at_the_end)
          << "length " << length << " bit " << bit;
    }
  }
}

TEST(ipv4, masks_are_read_in_network_byte_order) {
  EXPECT_TRUE(ipv4_mask_is_contiguous(inet_addr("255.255.254.0")));
  EXPECT_FALSE(ipv4_mask_is_contiguous(inet_addr("0.255.255.255")));
  EXPECT_FALSE(ipv4_mask_is_contiguous(inet_addr("255.0.255.0")));
  EXPECT_EQ(ipv4_mask2prefixlen(inet_addr("255.0.255.0")), 16U) << "ones are counted as they are";
}

}  // namespace
}  // namespace ot
