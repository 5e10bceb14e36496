// The routes of the in-memory router and the router's own addresses. For the files of this folder.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "platform/common/watched_prefixes.h"
#include "platform/fib_client.h"

namespace ot {

// Addresses in network byte order.
struct fib_field {
  std::map<fib_prefix, std::string> routes;  // with the first hop
  std::set<fib_prefix> own_addresses;        // of length 32

  // The longest match of the prefix's address in its table.
  void find(const fib_prefix& prefix, rtclient_result* ret) const;
};

// A prefix by its address as dotted text.
fib_prefix field_prefix(std::uint32_t table, const char* address, std::uint32_t length);

}  // namespace ot
