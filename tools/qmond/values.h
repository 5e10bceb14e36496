// Single values of the configuration file. Each function takes one key's value into its place, or
// throws value_error, whose text goes on after "KEY: ".
#pragma once

#include <toml++/toml.h>

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace ot::qmond {

struct value_error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

std::string text_value(const toml::node& node);
bool truth_value(const toml::node& node);
std::uint32_t number_value(const toml::node& node, std::uint32_t least, std::uint32_t most);

// Calls `read` with each element of the list; what it throws is thrown for all of them at once.
void read_elements(const toml::array& list, const std::function<void(const toml::node&)>& read);

// Milliseconds of a text such as "250ms", "2s", "5m" or "1h"; between `least` and `most`.
std::uint32_t duration_value(const toml::node& node, std::uint32_t least, std::uint32_t most);

// Whether it is an IPv4 or IPv6 address.
bool is_address(const std::string& text);
// An address, or a name as the DNS knows them.
std::string host_value(std::string_view text);

struct host_port {
  std::string host;
  std::uint16_t port;
};
// "HOST:PORT", "[IPV6]:PORT"; with a default port also "HOST" alone. 0 is no default.
host_port host_port_value(std::string_view text, std::uint16_t default_port);

// Host and port of an http or https URL.
host_port url_value(std::string_view text);

}  // namespace ot::qmond
