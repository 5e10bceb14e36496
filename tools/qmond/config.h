// The configuration: the operations (what to probe, how often, and when the published return code
// changes), and reading them from the file. Every error is reported with its place, and not only
// the first.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/settings/problems.h"

namespace ot::qmond {

enum class kind_id : std::uint32_t { icmp, tcp, http, dns, command };

struct operation {
  std::uint32_t id = 0;
  kind_id kind = kind_id::icmp;
  std::string target;  // as it is written and shown: address, URL, DNS server or command line

  std::string host;  // address or name to reach; empty for a command
  std::uint16_t port = 0;

  std::uint32_t interval_ms = 5000;
  std::uint32_t timeout_ms = 1000;
  std::uint32_t rise = 1;  // successes in a row that make the return code 1
  std::uint32_t fall = 1;  // failures in a row that make it a failure

  std::string source;  // local address, empty: the kernel's choice
  std::string device;  // interface or VRF device, empty: any

  std::uint32_t size = 56;            // icmp: payload bytes
  std::vector<std::uint32_t> status;  // http: what counts as success, empty: 200 to 399
  bool verify = true;                 // http: check the server's certificate
  std::string query;                  // dns: the name to ask for
  std::uint16_t query_type = 1;       // dns: record type, 1 is A
  std::vector<std::string> argv;      // command

  bool operator==(const operation&) const = default;
};

using settings::problem;
using settings::problem_text;

struct configuration {
  std::vector<operation> operations;  // without those that have errors
  std::vector<problem> problems;      // in the order of their places
};

configuration parse_config(std::string_view text);

// The same for a file; one that cannot be read, or that others than root and this process's user
// may write to, is a problem of line 0.
configuration read_config(const std::string& path);

}  // namespace ot::qmond
