// Keeps messages about routes that concern nobody from being sent to us at all: a router with a
// full table changes hundreds of thousands of them, and reading each costs microseconds. The kernel
// runs the filter, a program of its socket filter machine, in the process that makes the change.
//
// It passes too much rather than too little: routes of any table, routes near those asked for when
// these are many, and every message that is not just one IPv4 route.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ot {

// IPv4 addresses in host byte order, both included.
struct address_range {
  std::uint32_t first = 0;
  std::uint32_t last = 0;

  friend auto operator<=>(const address_range&, const address_range&) = default;
};

// The addresses of `ranges`, in any order, as at most `most` (at least 1) ranges that are sorted
// and do not touch; where they would be more, the smallest gaps are taken in.
std::vector<address_range> join_ranges(std::vector<address_range> ranges, std::size_t most);

// From now on the socket gets, of the messages about IPv4 routes, those whose prefix has an address
// in common with one of the ranges; with none, none of them. Messages that wait already are not
// touched. 0 or an errno value; what was in force before then still is.
int filter_route_messages(int fd, std::vector<address_range> ranges) noexcept;

// It gets all again.
void pass_all_messages(int fd) noexcept;

}  // namespace ot
