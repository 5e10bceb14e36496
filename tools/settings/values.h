// Single values of a configuration file. Each function takes one key's value into its place, or
// throws value_error, whose text goes on after "KEY: ".
#pragma once

#include <toml++/toml.h>

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace ot::settings {

struct value_error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Not empty.
std::string text_value(const toml::node& node);
bool truth_value(const toml::node& node);
std::uint32_t number_value(const toml::node& node, std::uint32_t least, std::uint32_t most);

// A program by its absolute path, and its arguments, which may be empty.
std::vector<std::string> argv_value(const toml::node& node);

// Calls `read` with each element of the list; what it throws is thrown for all of them at once.
void read_elements(const toml::array& list, const std::function<void(const toml::node&)>& read);

// The digits at the start of `text`, which is shortened by them. False when there are none or too
// many.
bool take_number(std::string_view& text, std::uint32_t* ret);

// Milliseconds of a text such as "250ms", "2s", "5m" or "1h"; between `least` and `most`.
std::uint32_t duration_value(const toml::node& node, std::uint32_t least, std::uint32_t most);

}  // namespace ot::settings
