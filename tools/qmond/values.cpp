// Single values: their kinds and their bounds. The texts say what would be right.
#include "tools/qmond/values.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>

namespace ot::qmond {
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

// The digits at the start of `text`, which is shortened by them. False when there are none or too
// many.
bool take_number(std::string_view& text, std::uint32_t* ret) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *ret);
  if (error != std::errc{}) {
    return false;
  }
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return true;
}

std::uint16_t port_value(std::string_view text) {
  std::uint32_t port = 0;
  if (!take_number(text, &port) || !text.empty() || port == 0 || port > 65535) {
    throw value_error("the port must be a number from 1 to 65535");
  }
  return static_cast<std::uint16_t>(port);
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

bool is_address(const std::string& text) {
  std::array<unsigned char, 16> bytes{};
  return inet_pton(AF_INET, text.c_str(), bytes.data()) == 1 ||
         inet_pton(AF_INET6, text.c_str(), bytes.data()) == 1;
}

std::string host_value(std::string_view text) {
  std::string host(text);
  const bool plain = !host.empty() && host.size() <= 253 && host.front() != '-' &&
                     std::all_of(host.begin(), host.end(), [](unsigned char c) {
                       return std::isalnum(c) != 0 || c == '-' || c == '.' || c == '_';
                     });
  const bool digits_only = host.find_first_not_of("0123456789.") == std::string::npos;
  if (!is_address(host) && (!plain || digits_only)) {
    throw value_error("\"" + host + "\" is neither an address nor a host name");
  }
  return host;
}

host_port host_port_value(std::string_view text, std::uint16_t default_port) {
  const bool bracketed = text.starts_with('[');
  const std::size_t host_end = bracketed ? text.find(']') : text.rfind(':');
  const bool bare_address = !bracketed && is_address(std::string(text));
  std::string_view host = text;
  std::string_view port;
  if (bracketed) {
    if (host_end == std::string_view::npos) {
      throw value_error("the bracket is not closed");
    }
    host = text.substr(1, host_end - 1);
    port = text.substr(host_end + 1);
  } else if (!bare_address && host_end != std::string_view::npos) {
    host = text.substr(0, host_end);
    port = text.substr(host_end);
  }
  if (port.empty() && default_port == 0) {
    throw value_error("needs a port: \"192.0.2.1:80\" or \"[2001:db8::1]:80\"");
  }
  if (!port.empty() && !port.starts_with(':')) {
    throw value_error("only \":PORT\" may stand behind the bracket");
  }
  return {.host = host_value(host),
          .port = port.empty() ? default_port : port_value(port.substr(1))};
}

host_port url_value(std::string_view text) {
  struct scheme_row {
    std::string_view prefix;
    std::uint16_t port;
  };
  constexpr std::array schemes{scheme_row{"http://", 80}, scheme_row{"https://", 443}};
  for (const scheme_row& scheme : schemes) {
    if (text.starts_with(scheme.prefix)) {
      std::string_view authority = text.substr(scheme.prefix.size());
      authority = authority.substr(0, authority.find_first_of("/?#"));
      if (const std::size_t user = authority.rfind('@'); user != std::string_view::npos) {
        authority.remove_prefix(user + 1);
      }
      return host_port_value(authority, scheme.port);
    }
  }
  throw value_error("must begin with \"http://\" or \"https://\"");
}

}  // namespace ot::qmond
