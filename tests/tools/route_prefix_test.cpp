// Which prefixes and VRF names trackctl takes, and that a refusal says what would be right.
#include "tools/trackctl/names.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>

#include "tests/tools/refusal.h"

namespace ot::trackctl {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

std::string prefix_refusal(const std::string& text) {
  return refusal([&] { (void)parse_route_prefix(text); });
}

std::string vrf_refusal(const std::string& name) {
  return refusal([&] { check_vrf_name(name); });
}

TEST(route_prefix, is_an_address_and_a_mask_in_network_order) {
  const route_prefix net = parse_route_prefix("10.1.0.0/16");
  EXPECT_EQ(net.address, htonl(0x0a010000));
  EXPECT_EQ(net.mask, htonl(0xffff0000));
  const route_prefix host = parse_route_prefix("192.0.2.1/32");
  EXPECT_EQ(host.address, htonl(0xc0000201));
  EXPECT_EQ(host.mask, 0xffffffffU);
}

TEST(route_prefix, refuses_what_is_no_prefix) {
  for (const char* const text : {"", "10.1.0.0", "10.1.0/16", "x/16", "2001:db8::/32", "/16"}) {
    EXPECT_THAT(prefix_refusal(text), HasSubstr("such as 192.0.2.0/24")) << text;
  }
  for (const char* const text : {"10.1.0.0/33", "10.1.0.0/", "10.1.0.0/-1", "10.1.0.0/16/8"}) {
    EXPECT_THAT(prefix_refusal(text), HasSubstr("is not a whole number from 1 to 32")) << text;
  }
}

TEST(route_prefix, refuses_host_bits_and_gives_the_network) {
  EXPECT_THAT(prefix_refusal("10.1.2.3/16"), HasSubstr("the network is 10.1.0.0/16"));
}

TEST(route_prefix, refuses_address_0) {
  for (const char* const text : {"0.0.0.0/8", "0.0.0.0/32", "0.1.2.3/8"}) {
    EXPECT_THAT(prefix_refusal(text),
                AllOf(HasSubstr("cannot be tracked: the FIB takes no"), HasSubstr("instead")))
        << text;
  }
}

TEST(route_prefix, refuses_length_0_whatever_the_address) {
  for (const char* const text : {"0.0.0.0/0", "10.0.0.0/0"}) {
    EXPECT_THAT(prefix_refusal(text), HasSubstr("cannot be tracked: the FIB takes no")) << text;
  }
}

TEST(vrf_name, is_a_name_that_a_device_can_have) {
  EXPECT_EQ(vrf_refusal("blue"), "");
  EXPECT_EQ(vrf_refusal("default"), "");
  EXPECT_EQ(vrf_refusal(std::string(15, 'v')), "");
  EXPECT_THAT(vrf_refusal(std::string(16, 'v')),
              HasSubstr("16 characters; at most 15 can be, since a VRF is a Linux device"));
  EXPECT_THAT(vrf_refusal(std::string(31, 'v')), HasSubstr("at most 15"));
  EXPECT_THAT(vrf_refusal("a:b"), HasSubstr("no interface can have"));
  EXPECT_THAT(vrf_refusal(".."), HasSubstr("no interface can have"));
  EXPECT_THAT(vrf_refusal(""), HasSubstr("empty"));
  EXPECT_THAT(vrf_refusal("a/b"), HasSubstr("'/'"));
  EXPECT_THAT(vrf_refusal("a b"), HasSubstr("blank"));
}

}  // namespace
}  // namespace ot::trackctl
