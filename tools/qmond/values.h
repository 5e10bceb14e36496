// Values of the configuration file that only operations have: where to reach a target. Each
// function throws value_error, whose text goes on after "KEY: ".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "tools/settings/values.h"

namespace ot::qmond {

using settings::duration_value;
using settings::number_value;
using settings::read_elements;
using settings::text_value;
using settings::truth_value;
using settings::value_error;

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
