// Checks of names and delays. Each refusal says what was given, what is wrong with it and what
// would be right.
#include "tools/trackctl/names.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "tools/trackctl/failure.h"

namespace ot::trackctl {
namespace {

constexpr std::size_t longest_track_name = 32;
constexpr std::size_t longest_interface_name = 63;
constexpr std::uint32_t longest_delay = 65535;

bool is_track_name_character(char character) {
  return std::isalnum(static_cast<unsigned char>(character)) != 0 ||
         std::string_view{"_.:-"}.find(character) != std::string_view::npos;
}

bool is_bad_in_interface_name(char character) {
  return character == '/' || std::isspace(static_cast<unsigned char>(character)) != 0;
}

[[noreturn]] void refuse(const std::string& text) {
  throw failure(exit_usage, text);
}

}  // namespace

void check_track_name(std::string_view name) {
  const std::string quoted = "track name \"" + std::string(name) + "\"";
  if (name.empty()) {
    refuse("the track name is empty; give 1 to 32 characters");
  }
  if (name.size() > longest_track_name) {
    refuse(quoted + " has " + std::to_string(name.size()) + " characters; at most 32 are shown");
  }
  if (!std::all_of(name.begin(), name.end(), is_track_name_character)) {
    refuse(quoted + " has a character that no track name has; use A-Z a-z 0-9 _ . : -");
  }
}

void check_interface_name(std::string_view name) {
  const std::string quoted = "interface name \"" + std::string(name) + "\"";
  if (name.empty()) {
    refuse("the interface name is empty; give one as `ip link` lists it");
  }
  if (name.size() > longest_interface_name) {
    refuse(quoted + " has " + std::to_string(name.size()) + " characters; at most 63 are kept");
  }
  if (std::any_of(name.begin(), name.end(), is_bad_in_interface_name)) {
    refuse(quoted + " has a '/' or a blank; give one as `ip link` lists it");
  }
}

std::uint32_t parse_delay(const std::string& what, const std::string& text) {
  return parse_number(what, text, {.unit = " of seconds", .least = 0, .most = longest_delay});
}

std::uint32_t parse_number(const std::string& what, const std::string& text,
                           const number_range& range) {
  std::uint32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc{} || stop != end || number < range.least || number > range.most) {
    refuse(what + " \"" + text + "\" is not a whole number" + range.unit + " from " +
           std::to_string(range.least) + " to " + std::to_string(range.most));
  }
  return number;
}

}  // namespace ot::trackctl
