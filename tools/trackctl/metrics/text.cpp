#include "tools/trackctl/metrics/text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>

namespace ot::trackctl {
namespace {

constexpr double exact_max = 9007199254740992.0;  // beyond it not every whole number is one

std::string_view suffix_of(const metric& of) noexcept {
  return of.kind == metric_kind::counter ? "_total" : "";
}

void append_number(std::string& to, double value) {
  std::array<char, 32> digits{};
  char* const end = digits.data() + digits.size();
  const bool whole = std::abs(value) < exact_max && value == std::trunc(value);
  const auto written = whole ? std::to_chars(digits.data(), end, static_cast<std::int64_t>(value))
                             : std::to_chars(digits.data(), end, value);
  to.append(digits.data(), written.ptr);
}

// How long the character is that begins there; 0 when no character of UTF-8 does.
std::size_t character_at(std::string_view text) noexcept {
  const auto byte = [text](std::size_t place) -> std::uint32_t {
    return place < text.size() ? static_cast<unsigned char>(text[place]) : 0U;
  };
  const std::uint32_t first = byte(0);
  if (first < 0x80) {
    return 1;
  }
  const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  std::uint32_t code = first & (0x7fU >> length);
  for (std::size_t place = 1; place < length; ++place) {
    if ((byte(place) & 0xc0U) != 0x80) {
      return 0;
    }
    code = code << 6U | (byte(place) & 0x3fU);
  }
  constexpr std::array<std::uint32_t, 5> least{0, 0, 0x80, 0x800, 0x10000};
  const bool good = first >= 0xc2 && first <= 0xf4 && code >= least.at(length) &&
                    code <= 0x10ffff && (code < 0xd800 || code > 0xdfff);
  return good ? length : 0;
}

// A byte that is no text becomes a replacement character with its number behind, so that two
// values that differ stay two.
void append_byte(std::string& to, char byte) {
  constexpr std::string_view digits = "0123456789abcdef";
  const auto number = static_cast<unsigned char>(byte);
  to += "\xef\xbf\xbd";
  to += digits[number >> 4U];
  to += digits[number & 0xfU];
}

void append_value(std::string& to, std::string_view value) {
  while (!value.empty()) {
    const std::size_t length = character_at(value);
    const char first = value.front();
    if (length == 0) {
      append_byte(to, first);
    } else if (first == '\n') {
      to += "\\n";
    } else {
      to += first == '"' || first == '\\' ? "\\" : "";
      to += value.substr(0, length);
    }
    value.remove_prefix(std::max<std::size_t>(length, 1));
  }
}

std::string description(const metric& of, text_form form) {
  std::string name(of.name);
  name += form == text_form::prometheus ? suffix_of(of) : "";
  std::string lines = "# HELP " + name + ' ' + std::string(of.help) + "\n# TYPE " + name +
                      (of.kind == metric_kind::counter ? " counter\n" : " gauge\n");
  if (form == text_form::openmetrics && !of.unit.empty()) {
    lines += "# UNIT " + name + ' ' + std::string(of.unit) + '\n';
  }
  return lines;
}

}  // namespace

void metrics_text::add(const metric& of, std::initializer_list<metric_label> labels, double value) {
  std::string& lines = lines_of(of);
  lines += of.name;
  lines += suffix_of(of);
  char before = '{';
  for (const auto& [name, text] : labels) {
    lines += before;
    lines += name;
    lines += "=\"";
    append_value(lines, text);
    lines += '"';
    before = ',';
  }
  lines += before == ',' ? "} " : " ";
  append_number(lines, value);
  lines += '\n';
}

std::string& metrics_text::lines_of(const metric& of) {
  const auto found = std::find_if(families_.begin(), families_.end(),
                                  [&of](const family& each) { return each.of == &of; });
  return found != families_.end() ? found->lines : families_.emplace_back(family{&of, {}}).lines;
}

std::string metrics_text::text() const {
  std::string all;
  for (const family& each : families_) {
    all += description(*each.of, form_);
    all += each.lines;
  }
  return form_ == text_form::openmetrics ? all + "# EOF\n" : all;
}

}  // namespace ot::trackctl
