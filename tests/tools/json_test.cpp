// What the tools' JSON does beyond its library.
#include "tools/json.h"

#include <gtest/gtest.h>

#include <string>

namespace ot {
namespace {

TEST(json, a_text_nested_deeper_than_a_stack_is_let_go_of) {
  constexpr std::size_t depth = 1'000'000;
  std::string text;
  for (std::size_t at = 0; at < depth; ++at) {
    text += R"([{"a":)";
  }
  text += "1";
  for (std::size_t at = 0; at < depth; ++at) {
    text += "}]";
  }
  nlohmann::json value = nlohmann::json::parse(text);
  EXPECT_EQ(value.size(), 1U);
  value = nullptr;
  EXPECT_TRUE(value.is_null());
}

}  // namespace
}  // namespace ot
