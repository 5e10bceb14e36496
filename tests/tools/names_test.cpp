// Which names and delays trackctl takes, and that a refusal says what would be right.
#include "tools/trackctl/names.h"

#include <gmock/gmock.h>

#include "tests/tools/refusal.h"

namespace ot::trackctl {
namespace {

using ::testing::HasSubstr;

std::string track_refusal(const std::string& name) {
  return refusal([&] { check_track_name(name); });
}

std::string interface_refusal(const std::string& name) {
  return refusal([&] { check_interface_name(name); });
}

std::string delay_refusal(const std::string& text) {
  return refusal([&] { (void)parse_delay("--up", text); });
}

TEST(track_name, takes_up_to_32_characters_of_its_set) {
  EXPECT_EQ(track_refusal("a"), "");
  EXPECT_EQ(track_refusal("Az09_.:-"), "");
  EXPECT_EQ(track_refusal(std::string(32, 'x')), "");
}

TEST(track_name, refuses_others_and_says_what_is_right) {
  EXPECT_THAT(track_refusal(""), HasSubstr("1 to 32 characters"));
  EXPECT_THAT(track_refusal(std::string(33, 'x')), HasSubstr("33 characters; at most 32"));
  EXPECT_THAT(track_refusal("a/b"), HasSubstr("A-Z a-z 0-9 _ . : -"));
  EXPECT_THAT(track_refusal("a b"), HasSubstr("\"a b\""));
  EXPECT_NE(track_refusal("gr\xc3\xbcn"), "");
}

TEST(interface_name, takes_up_to_63_characters_without_slash_and_blank) {
  EXPECT_EQ(interface_refusal("eth0.100@x"), "");
  EXPECT_EQ(interface_refusal(std::string(63, 'i')), "");
  EXPECT_THAT(interface_refusal(std::string(64, 'i')), HasSubstr("at most 63"));
  EXPECT_THAT(interface_refusal(""), HasSubstr("empty"));
  EXPECT_THAT(interface_refusal("a/b"), HasSubstr("'/'"));
  EXPECT_THAT(interface_refusal("a\tb"), HasSubstr("blank"));
}

TEST(delay, takes_0_to_65535) {
  EXPECT_EQ(parse_delay("--up", "0"), 0U);
  EXPECT_EQ(parse_delay("--up", "65535"), 65535U);
}

TEST(delay, refuses_others_with_the_range) {
  for (const char* const text : {"65536", "-1", "5s", "", " 5", "0x10", "99999999999999999999"}) {
    EXPECT_THAT(delay_refusal(text), HasSubstr("from 0 to 65535")) << text;
  }
}

TEST(number, takes_the_whole_range_and_nothing_else) {
  EXPECT_EQ(parse_number("--up", "1", {.least = 1}), 1U);
  EXPECT_EQ(parse_number("--up", "4294967295", {.least = 1}), 0xffffffffU);
  for (const char* const text : {"0", "4294967296", "-1", "", "1.5"}) {
    EXPECT_THAT(refusal([&] { (void)parse_number("--up", text, {.least = 1}); }),
                HasSubstr("is not a whole number from 1 to 4294967295"))
        << text;
  }
}

}  // namespace
}  // namespace ot::trackctl
