#include "platform/linux/routes/message_filter.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <initializer_list>
#include <limits>
#include <new>
#include <span>
#include <utility>

namespace ot {
namespace {

// So many fit into the memory that a socket may have for its options, 20 kB before Linux 6.7.
constexpr std::size_t ranges_most = 200;

constexpr std::uint32_t host_length = 32;

constexpr std::uint32_t pass = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint32_t drop = 0;

// Places in the machine's memory: of the changed prefix.
constexpr std::uint32_t first_address = 0;
constexpr std::uint32_t last_address = 1;

// The machine loads numbers in network byte order, messages have the host's.
constexpr bool is_little = std::endian::native == std::endian::little;
constexpr std::size_t lowest_byte = is_little ? 0 : 3;
constexpr std::size_t second_byte = is_little ? 1 : 2;

std::uint32_t as_loaded(std::uint16_t number) noexcept {
  return htons(number);
}

sock_filter step(unsigned code, std::uint32_t value = 0) noexcept {
  return {static_cast<std::uint16_t>(code), 0, 0, value};
}

sock_filter load(unsigned size, std::size_t at) noexcept {
  return step(BPF_LD | size | BPF_ABS, static_cast<std::uint32_t>(at));
}

// Over as many steps as said, when the condition holds and when not.
sock_filter jump(unsigned condition, std::uint32_t value, std::uint8_t if_so,
                 std::uint8_t if_not) noexcept {
  return {static_cast<std::uint16_t>(BPF_JMP | condition), if_so, if_not, value};
}

sock_filter give(std::uint32_t verdict) noexcept {
  return step(BPF_RET | BPF_K, verdict);
}

using filter_program = std::vector<sock_filter>;

void append(filter_program& program, std::initializer_list<sock_filter> steps) {
  program.insert(program.end(), steps);
}

// Passes what is not one message about an IPv4 route to less than everything.
void append_pass_others(filter_program& program) {
  constexpr std::size_t route = NLMSG_HDRLEN;
  append(program, {
                      load(BPF_H, offsetof(nlmsghdr, nlmsg_type)),
                      jump(BPF_JEQ | BPF_K, as_loaded(RTM_NEWROUTE), 2, 0),
                      jump(BPF_JEQ | BPF_K, as_loaded(RTM_DELROUTE), 1, 0),
                      give(pass),
                  });
  // Its length and that of all that was sent, in X.
  append(program, {
                      load(BPF_B, offsetof(nlmsghdr, nlmsg_len) + second_byte),
                      step(BPF_ALU | BPF_LSH | BPF_K, 8),
                      step(BPF_MISC | BPF_TAX),
                      load(BPF_B, offsetof(nlmsghdr, nlmsg_len) + lowest_byte),
                      step(BPF_ALU | BPF_OR | BPF_X),
                      step(BPF_LDX | BPF_W | BPF_LEN),
                      jump(BPF_JEQ | BPF_X, 0, 1, 0),
                      give(pass),
                  });
  append(program, {
                      load(BPF_B, route + offsetof(rtmsg, rtm_family)),
                      jump(BPF_JEQ | BPF_K, AF_INET, 1, 0),
                      give(pass),
                      load(BPF_B, route + offsetof(rtmsg, rtm_dst_len)),
                      jump(BPF_JEQ | BPF_K, 0, 0, 1),
                      give(pass),
                      jump(BPF_JGT | BPF_K, host_length, 0, 1),
                      give(pass),
                  });
}

// The first and last address of the route's prefix into the machine's memory.
void append_prefix(filter_program& program) {
  constexpr std::size_t attributes = NLMSG_HDRLEN + NLMSG_ALIGN(sizeof(rtmsg));
  // The kernel looks for the attribute whose type is in X from the place in A on; 0: it has none.
  append(program,
         {
             step(BPF_LDX | BPF_IMM, RTA_DST),
             step(BPF_LD | BPF_IMM, attributes),
             step(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(SKF_AD_OFF + SKF_AD_NLATTR)),
             jump(BPF_JEQ | BPF_K, 0, 0, 1),
             give(pass),
             step(BPF_MISC | BPF_TAX),
             step(BPF_LD | BPF_W | BPF_IND, NLA_HDRLEN),
             step(BPF_ST, first_address),
         });
  // All bits but the highest, less those of the rest of the prefix.
  constexpr std::uint32_t free_bits_most = 0x7fffffff;
  append(program, {
                      load(BPF_B, NLMSG_HDRLEN + offsetof(rtmsg, rtm_dst_len)),
                      step(BPF_ALU | BPF_SUB | BPF_K, 1),
                      step(BPF_MISC | BPF_TAX),
                      step(BPF_LD | BPF_IMM, free_bits_most),
                      step(BPF_ALU | BPF_RSH | BPF_X),
                      step(BPF_LDX | BPF_MEM, first_address),
                      step(BPF_ALU | BPF_OR | BPF_X),
                      step(BPF_ST, last_address),
                  });
}

// Passes when the prefix, whose first address is in A, has an address of the ranges: in the first
// of them that does not end before it, if any does.
void append_search(filter_program& program, std::span<const address_range> ranges) {
  if (ranges.empty()) {
    append(program, {give(drop)});
    return;
  }
  if (ranges.size() == 1) {
    append(program, {
                        jump(BPF_JGT | BPF_K, ranges[0].last, 3, 0),
                        step(BPF_LD | BPF_MEM, last_address),
                        jump(BPF_JGE | BPF_K, ranges[0].first, 0, 1),
                        give(pass),
                        give(drop),
                    });
    return;
  }
  const auto lower = ranges.first(ranges.size() / 2);
  append(program, {jump(BPF_JGT | BPF_K, lower.back().last, 0, 1), step(BPF_JMP | BPF_JA)});
  const std::size_t over_lower = program.size() - 1;
  append_search(program, lower);
  program[over_lower].k = static_cast<std::uint32_t>(program.size() - over_lower - 1);
  append_search(program, ranges.subspan(lower.size()));
}

int attach(int fd, std::span<const address_range> ranges) {
  filter_program program;
  append_pass_others(program);
  append_prefix(program);
  append(program, {step(BPF_LD | BPF_MEM, first_address)});
  append_search(program, ranges);
  const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  return setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter) == 0 ? 0 : errno;
}

// Ranges that follow each other in the order of their first addresses and have at most such a
// distance become one.
std::vector<address_range> join_near(std::span<const address_range> sorted,
                                     std::uint32_t distance) {
  std::vector<address_range> joined;
  for (const address_range& range : sorted) {
    if (!joined.empty() &&
        (range.first <= joined.back().last || range.first - joined.back().last <= distance)) {
      joined.back().last = std::max(joined.back().last, range.last);
    } else {
      joined.push_back(range);
    }
  }
  return joined;
}

}  // namespace

std::vector<address_range> join_ranges(std::vector<address_range> ranges, std::size_t most) {
  constexpr std::uint32_t neighbours = 1;
  std::sort(ranges.begin(), ranges.end());
  std::vector<address_range> joined = join_near(ranges, neighbours);
  if (joined.size() <= most) {
    return joined;
  }
  std::vector<std::uint32_t> distances;
  for (std::size_t i = 1; i < joined.size(); ++i) {
    distances.push_back(joined[i].first - joined[i - 1].last);
  }
  const auto largest = distances.begin() + static_cast<std::ptrdiff_t>(joined.size() - most - 1);
  std::nth_element(distances.begin(), largest, distances.end());
  return join_near(joined, *largest);
}

int filter_route_messages(int fd, std::vector<address_range> ranges) noexcept try {
  int status = ENOMEM;
  for (std::size_t most = ranges_most; status == ENOMEM && most > 0; most /= 2) {
    ranges = join_ranges(std::move(ranges), most);
    status = attach(fd, ranges);
  }
  return status;
} catch (const std::bad_alloc&) {
  return ENOMEM;
}

void pass_all_messages(int fd) noexcept {
  const int unused = 0;
  setsockopt(fd, SOL_SOCKET, SO_DETACH_FILTER, &unused, sizeof unused);
}

}  // namespace ot
