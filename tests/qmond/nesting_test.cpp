// Keys and values that are nested too deep for the TOML library.
#include "tools/settings/nesting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/qmond/problems_of.h"

namespace ot::qmond {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string deep_key(std::size_t parts) {
  std::string key = "a";
  for (std::size_t i = 1; i < parts; ++i) {
    key += ".a";
  }
  return key;
}

TEST(qmond_nesting, a_key_of_very_many_parts_is_an_error) {
  const std::string deep = deep_key(200000);
  for (const std::string& text : {deep + " = 1\n", "[" + deep + "]\n", "[[" + deep + "]]\n",
                                  "x = {" + deep + " = 1}\n", "# .\nx = 'a'\n" + deep + "\n"}) {
    const auto problems = problems_of(text);
    ASSERT_EQ(problems.size(), 1U);
    EXPECT_THAT(problems[0], testing::EndsWith("a key has more than 8 parts"));
  }
  EXPECT_THAT(problems_of("# \n\n\"\303\244\" . " + deep_key(8)),
              ElementsAre("f:3:20: a key has more than 8 parts"));
}

TEST(qmond_nesting, values_in_values_without_end_are_an_error) {
  for (const char* const opening : {"[", "{a = "}) {
    std::string text = "x = ";
    for (int i = 0; i < 100000; ++i) {
      text += opening;
    }
    EXPECT_EQ(problems_of(text).size(), 1U) << opening;
  }
}

TEST(qmond_nesting, dots_that_are_no_key_do_not_count) {
  EXPECT_THAT(problems_of(R"(# a.a.a.a.a.a.a.a.a.a
[[operation]] # "a.a.a.a.a.a.a.a.a.a
id = 1
kind = "icmp"
target = "a.a.a.a.a.a.a.a.a.a"
[[operation]]
id = 2
kind = 'command'
command = ["/\".a.a.a.a.a.a.a.a.a", '''.'..'.........''',
"""\"""........
.........""""]
)"),
              IsEmpty());
}

}  // namespace
}  // namespace ot::qmond
