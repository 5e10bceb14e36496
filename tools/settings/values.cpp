// Single values: their kinds and their bounds. The texts say what would be right.
#include "tools/settings/values.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace ot::settings {
namespace {

struct unit_row {
  std::string_view name;
  std::uint64_t milliseconds;
};
constexpr std::array units{unit_row{"ms", 1}, unit_row{"s", 1000}, unit_row{"m", 60000},
                           unit_row{"h", 3600000}};

std::string duration_text(std::uint32_t milliseconds) {
  return milliseconds % 1000 == 0 ? std::to_string(milliseconds / 1000) + "s"
                                  : std::to_string(milliseconds) + "ms";
}

}  // namespace

std::string text_value(const toml::node& node) {
  const toml::value<std::string>* const text = node.as_string();
  if (text == nullptr) {
    throw value_error("must be a text in quotes");
  }
  if (text->get().empty() || text->get().find('\0') != std::string::npos) {
    throw value_error("must not be empty nor hold a zero byte");
  }
  return text->get();
}

bool truth_value(const toml::node& node) {
  const toml::value<bool>* const truth = node.as_boolean();
  if (truth == nullptr) {
    throw value_error("must be true or false");
  }
  return truth->get();
}

std::uint32_t number_value(const toml::node& node, std::uint32_t least, std::uint32_t most) {
  const toml::value<std::int64_t>* const number = node.as_integer();
  if (number == nullptr || number->get() < least || number->get() > most) {
    throw value_error("must be a number from " + std::to_string(least) + " to " +
                      std::to_string(most));
  }
  return static_cast<std::uint32_t>(number->get());
}

std::vector<std::string> argv_value(const toml::node& node) {
  const toml::array* const list = node.as_array();
  if (list == nullptr || list->empty()) {
    throw value_error("must be a list of texts: the program and its arguments");
  }
  std::vector<std::string> argv;
  read_elements(*list, [&argv](const toml::node& element) {
    const bool empty = element.is_string() && element.as_string()->get().empty();
    argv.push_back(empty ? std::string() : text_value(element));
  });
  if (!argv.front().starts_with('/')) {
    throw value_error("the program must be an absolute path; there is no shell and no PATH");
  }
  return argv;
}

void read_elements(const toml::array& list, const std::function<void(const toml::node&)>& read) {
  std::string wrong;
  for (std::size_t i = 0; i < list.size(); ++i) {
    try {
      read(list[i]);
    } catch (const value_error& error) {
      wrong +=
          (wrong.empty() ? "" : "; ") + ("element " + std::to_string(i + 1)) + ' ' + error.what();
    }
  }
  if (!wrong.empty()) {
    throw value_error(wrong);
  }
}

bool take_number(std::string_view& text, std::uint32_t* ret) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *ret);
  if (error != std::errc{}) {
    return false;
  }
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return true;
}

std::uint32_t duration_value(const toml::node& node, std::uint32_t least, std::uint32_t most) {
  const toml::value<std::string>* const text = node.as_string();
  std::string_view rest = text == nullptr ? std::string_view{} : std::string_view{text->get()};
  std::uint32_t count = 0;
  if (!take_number(rest, &count)) {
    throw value_error("must be a text such as \"500ms\", \"2s\" or \"5m\"");
  }
  const auto* const unit = std::find_if(units.begin(), units.end(),
                                        [&](const unit_row& row) { return row.name == rest; });
  if (unit == units.end()) {
    throw value_error("needs a unit: ms, s, m or h");
  }
  const std::uint64_t milliseconds = count * unit->milliseconds;
  if (milliseconds < least || milliseconds > most) {
    throw value_error("must be from " + duration_text(least) + " to " + duration_text(most));
  }
  return static_cast<std::uint32_t>(milliseconds);
}

}  // namespace ot::settings
