// Hosts, ports and URLs. The texts say what would be right.
#include "tools/qmond/values.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cctype>

namespace ot::qmond {
namespace {

std::uint16_t port_value(std::string_view text) {
  std::uint32_t port = 0;
  if (!settings::take_number(text, &port) || !text.empty() || port == 0 || port > 65535) {
    throw value_error("the port must be a number from 1 to 65535");
  }
  return static_cast<std::uint16_t>(port);
}

}  // namespace

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
