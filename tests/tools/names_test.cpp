// Which names and delays trackctl takes, and that a refusal says what would be right.
#include "tools/trackctl/names.h"

#include <gmock/gmock.h>

#include "tests/tools/refusal.h"

namespace ot::trackctl {
namespace {

using ::testing::HasSubstr;

std::string track_refusal(const std::string& name) {
  return refusal([&] { check_new_track_name(name); });
}

std::string interface_refusal(const std::string& name) {
  return refusal([&] { check_interface_name(name); });
}

std::string delay_refusal(const std::string& text) {
  return refusal([&] { (void)parse_delay("--up", text); });
}

std::string known_refusal(const std::string& name) {
  return refusal([&] { check_track_name(name); });
}

TEST(new_track_name, takes_up_to_31_characters_of_its_set) {
  EXPECT_EQ(track_refusal("a"), "");
  EXPECT_EQ(track_refusal("Az09_.:-"), "");
  EXPECT_EQ(track_refusal(std::string(31, 'x')), "");
}

TEST(new_track_name, refuses_others_and_says_what_is_right) {
  EXPECT_EQ(track_refusal(""), "the track name is empty; give 1 to 31 characters");
  EXPECT_EQ(track_refusal(std::string(32, 'x')),
            "track name \"" + std::string(32, 'x') + "\" has 32 characters; at most 31 are taken");
  EXPECT_EQ(track_refusal("a/b"),
            "track name \"a/b\" has a character that no track name has; use A-Z a-z 0-9 _ . : -");
  EXPECT_THAT(track_refusal("a b"), HasSubstr("\"a b\""));
  EXPECT_NE(track_refusal("gr\xc3\xbcn"), "");
}

TEST(new_track_name, refuses_words_that_mean_something_else) {
  EXPECT_EQ(
      track_refusal("not"),
      "track name \"not\" is taken: in a list it negates the member behind it; use another one");
  EXPECT_EQ(track_refusal("all-tracks"),
            "track name \"all-tracks\" is taken: where tracks are shown it stands for all of them; "
            "use another one");
  for (const char* const word : {"type-interface", "type-route", "type-prb"}) {
    EXPECT_THAT(track_refusal(word), HasSubstr("stands for those of a kind")) << word;
    EXPECT_EQ(known_refusal(word), "") << word;
  }
  EXPECT_EQ(track_refusal("nothing"), "");
  EXPECT_EQ(known_refusal("not"), "");
}

TEST(track_name, of_a_track_made_by_another_client_is_taken) {
  EXPECT_EQ(known_refusal(std::string(39, 'x')), "");
  EXPECT_EQ(known_refusal("a b \xc3\xbc"), "");
  EXPECT_EQ(known_refusal(""), "the track name is empty; give 1 to 39 characters");
  EXPECT_EQ(known_refusal(std::string(40, 'x')),
            "track name \"" + std::string(40, 'x') + "\" has 40 characters; at most 39 are taken");
  EXPECT_EQ(known_refusal("a/b"),
            "track name \"a/b\" has a '/' or a control character; no track has");
  EXPECT_EQ(known_refusal("a\nb"),
            "track name \"a\nb\" has a '/' or a control character; no track has");
}

TEST(interface_name, takes_what_linux_can_have) {
  EXPECT_EQ(interface_refusal("eth0.100@x"), "");
  EXPECT_EQ(interface_refusal(std::string(15, 'i')), "");
  EXPECT_EQ(interface_refusal(std::string(16, 'i')),
            "interface name \"iiiiiiiiiiiiiiii\" has 16 characters; at most 15 are kept");
  EXPECT_THAT(interface_refusal(""), HasSubstr("empty"));
  EXPECT_THAT(interface_refusal("a/b"), HasSubstr("'/'"));
  EXPECT_THAT(interface_refusal("a\tb"), HasSubstr("blank"));
  for (const char* const name : {"a:1", ".", ".."}) {
    EXPECT_EQ(interface_refusal(name),
              "interface name \"" + std::string(name) +
                  "\" is one that no interface can have; give one as `ip link` lists it");
  }
}

TEST(delay, takes_0_to_65535) {
  EXPECT_EQ(parse_delay("--up", "0"), 0U);
  EXPECT_EQ(parse_delay("--up", "65535"), 65535U);
}

TEST(delay, refuses_others_with_the_range) {
  for (const char* const text :
       {"65536", "-1", "5x", "19h", "", " 5", "0x10", "99999999999999999999"}) {
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
