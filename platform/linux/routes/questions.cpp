// What look-ups ask the kernel: about a route, as if there were a packet to send, one by one or
// many together, and about links.
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "platform/linux/routes/lookup.h"

namespace ot {
namespace {

constexpr std::uint32_t loopback = 1;  // the ifindex, in every namespace
constexpr int no_route_errors[] = {ENETUNREACH, EHOSTUNREACH, EINVAL, EACCES, ENODEV};

bool means_no_route(int error) noexcept {
  return std::find(std::begin(no_route_errors), std::end(no_route_errors), error) !=
         std::end(no_route_errors);
}

}  // namespace

// Questions about links wait for the lock that a change holds from its first event to its end.
void route_lookup::await_change() noexcept {
  is_up(loopback);
  forget_names();
}

std::optional<bool> route_lookup::is_up(std::uint32_t ifindex) noexcept {
  netlink_request request;
  nlmsghdr* message = mnl_nlmsg_put_header(request.bytes);
  message->nlmsg_type = RTM_GETLINK;
  auto* link = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)));
  *link = ifinfomsg{};
  link->ifi_index = static_cast<int>(ifindex);
  mnl_attr_put_u32(message, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
  unsigned flags = 0;
  const int status = requests_.ask(
      message,
      [](void* to, const nlmsghdr& answer) {
        if (answer.nlmsg_len >= NLMSG_LENGTH(sizeof(ifinfomsg))) {
          const auto& found = *static_cast<const ifinfomsg*>(NLMSG_DATA(&answer));
          *static_cast<unsigned*>(to) = found.ifi_flags;
        }
      },
      &flags);
  if (status != 0 && status != ENODEV) {
    return std::nullopt;
  }
  return (flags & IFF_UP) != 0;
}

nlmsghdr* route_lookup::question(std::span<char> room, std::uint32_t address,
                                 const vrf_device& vrf) noexcept {
  nlmsghdr* message = mnl_nlmsg_put_header(room.data());
  message->nlmsg_type = RTM_GETROUTE;
  auto* route = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(rtmsg)));
  *route = rtmsg{};
  route->rtm_family = AF_INET;
  route->rtm_dst_len = 32;
  route->rtm_flags = RTM_F_FIB_MATCH | RTM_F_LOOKUP_TABLE;
  mnl_attr_put_u32(message, RTA_DST, address);
  if (!is_default(vrf)) {
    mnl_attr_put_u32(message, RTA_OIF, vrf.id);
  }
  return message;
}

int route_lookup::ask(std::uint32_t address, const vrf_device& vrf,
                      std::optional<route_record>* ret) noexcept {
  int status = 0;
  if (take_early(address, vrf, ret, &status)) {
    return status;
  }
  ret->reset();
  netlink_request request;
  status = requests_.ask(
      question(request.bytes, address, vrf),
      [](void* to, const nlmsghdr& part) {
        route_record found;
        if (route_record_read(part, &found)) {
          *static_cast<std::optional<route_record>*>(to) = found;
        }
      },
      ret);
  return means_no_route(status) ? 0 : status;
}

// --- Questions asked together --------------------------------------------------------------------

void route_lookup::ask_ahead(std::span<const fib_prefix> wanted) noexcept {
  early_begin_ = early_end_ = 0;
  alignas(nlmsghdr) char questions[netlink_socket::questions_at_once * 64];
  std::size_t used = 0;
  for (const fib_prefix& prefix : wanted.first(std::min(wanted.size(), early_.size()))) {
    const vrf_device* vrf = the_vrf_devices().with_table_id(prefix.table);
    if (vrf != nullptr) {
      early_[early_end_++] = {prefix.address, vrf->id, ENODATA, std::nullopt};
      used += NLMSG_ALIGN(
          question(std::span(questions).subspan(used), prefix.address, *vrf)->nlmsg_len);
    }
  }
  const int status = requests_.ask_all(
      std::span(questions).first(used),
      [](void* self, std::size_t number, const nlmsghdr& part) {
        early_answer& answer = static_cast<route_lookup*>(self)->early_[number];
        route_record found;
        answer.status = netlink_error(part);
        if (route_record_read(part, &found)) {
          answer.route = found;
        }
      },
      this);
  early_end_ = status == 0 ? early_end_ : 0;
}

// Whether the next one of the answers is to this question.
bool route_lookup::take_early(std::uint32_t address, const vrf_device& vrf,
                              std::optional<route_record>* ret, int* ret_status) noexcept {
  for (std::size_t at = early_begin_; at < early_end_; ++at) {
    const early_answer& answer = early_[at];
    if (answer.address == address && answer.vrf == vrf.id) {
      *ret = answer.route;
      *ret_status = means_no_route(answer.status) ? 0 : answer.status;
      early_begin_ = at + 1;
      return true;
    }
  }
  return false;
}

}  // namespace ot
