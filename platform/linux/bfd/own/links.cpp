// Following links and addresses by their events. When the kernel had to drop events, or a socket is
// broken, everything is read again: every way is looked at anew then.
#include "platform/linux/bfd/own/links.h"

#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "platform/interface_manager.h"
#include "platform/linux/netlink/attributes.h"
#include "platform/status.h"

namespace ot::bfd {
namespace {

constexpr int dump_attempts = 8;  // when the kernel's tables changed under it
constexpr std::uint64_t retry_usec = 100'000;

std::uint32_t mask_of(unsigned length) noexcept {
  return length == 0 ? 0 : __builtin_bswap32(~std::uint32_t{0} << (32 - std::min(length, 32U)));
}

}  // namespace

int local_links::attach(evm* manager) noexcept {
  manager_ = manager;
  return retry_.attach(manager);
}

void local_links::open() noexcept {
  if (start_anew() != status_ok) {
    retry_.start(retry_usec);
  }
}

int local_links::start_anew() noexcept {
  int status = events_.open(RTMGRP_LINK | RTMGRP_IPV4_IFADDR);
  if (status == status_ok) {
    status = requests_.open_requests();
  }
  if (status == status_ok) {
    status = read_all();
  }
  return status == status_ok ? events_.follow(manager_) : status;
}

void local_links::close() noexcept {
  events_.close();
  retry_.stop();
}

// What is known stays until all has been read: half of it would take sessions down.
int local_links::read_all() noexcept {
  link_cache links;
  std::vector<local_address> addresses;
  std::swap(links_, links);
  std::swap(addresses_, addresses);
  int status = dump(RTM_GETLINK);
  if (status == status_ok) {
    status = dump(RTM_GETADDR);
  }
  if (status != status_ok) {
    std::swap(links_, links);
    std::swap(addresses_, addresses);
  }
  news_ = true;
  return status;
}

int local_links::dump(std::uint16_t type) noexcept {
  int status = EINTR;
  for (int attempt = 0; attempt < dump_attempts && status == EINTR; ++attempt) {
    netlink_request request;
    nlmsghdr* message = mnl_nlmsg_put_header(request.bytes);
    message->nlmsg_type = type;
    message->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    auto* family = static_cast<rtgenmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)));
    family->rtgen_family = type == RTM_GETADDR ? AF_INET : AF_UNSPEC;
    if (type == RTM_GETLINK) {
      mnl_attr_put_u32(message, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
    }
    status = requests_.request(message, on_event, this);
  }
  return status;
}

void local_links::on_event(void* self, const nlmsghdr& message) {
  auto* links = static_cast<local_links*>(self);
  switch (message.nlmsg_type) {
    case RTM_NEWLINK:
    case RTM_DELLINK:
      links->apply_link(message);
      break;
    case RTM_NEWADDR:
    case RTM_DELADDR:
      links->apply_address(message);
      break;
    default:
      break;
  }
}

// What cannot be kept for want of memory is read again.
void local_links::apply_link(const nlmsghdr& message) {
  const std::uint32_t ifindex = link_message_index(message);
  if (ifindex == 0) {
    return;
  }
  const link_record* before = links_.find(ifindex);
  link_record now;
  if (message.nlmsg_type == RTM_DELLINK) {
    news_ = news_ || before != nullptr;
    links_.erase(ifindex);
    std::erase_if(addresses_, [ifindex](const local_address& a) { return a.ifindex == ifindex; });
  } else if (link_record_read(message, before, &now)) {
    news_ = news_ || before == nullptr || before->state != now.state ||
            before->of_vrf != now.of_vrf || !(before->name == now.name);
    if (links_.put(now) != status_ok) {
      retry_.start(retry_usec);
    }
  }
}

void local_links::apply_address(const nlmsghdr& message) {
  const auto& header = *static_cast<const ifaddrmsg*>(mnl_nlmsg_get_payload(&message));
  if (message.nlmsg_len < NLMSG_LENGTH(sizeof header) || header.ifa_family != AF_INET) {
    return;
  }
  local_address changed{header.ifa_index, 0, 0, mask_of(header.ifa_prefixlen)};
  netlink_walk(netlink_attributes<ifaddrmsg>(message),
               [&changed](std::uint16_t type, netlink_bytes value) {
                 if (type == IFA_LOCAL) {
                   changed.address = netlink_number<std::uint32_t>(value);
                 } else if (type == IFA_ADDRESS) {
                   changed.network = netlink_number<std::uint32_t>(value);
                 }
               });
  changed.network &= changed.mask;
  const auto known = std::find(addresses_.begin(), addresses_.end(), changed);
  const bool gone = message.nlmsg_type == RTM_DELADDR;
  if (gone != (known != addresses_.end())) {
    return;  // nothing new
  }
  news_ = true;
  if (gone) {
    addresses_.erase(known);
    return;
  }
  try {
    addresses_.push_back(changed);
  } catch (const std::bad_alloc&) {
    retry_.start(retry_usec);
  }
}

void local_links::on_taken(void* self) {
  auto* links = static_cast<local_links*>(self);
  if (std::exchange(links->news_, false)) {
    links->changed_(links->owner_);
  }
}

void local_links::on_lost(void* self, int /*status*/) {
  try_again(self);
}

void local_links::try_again(void* self) noexcept {
  auto* links = static_cast<local_links*>(self);
  links->open();
  on_taken(links);
}

// --- Ways ----------------------------------------------------------------------------------------

std::optional<neighbor_path> local_links::towards(const session_config& session,
                                                  std::string_view* ret_problem) const noexcept {
  const link_record* link = links_.find(session.key.interface.c_str());
  if (link == nullptr) {
    *ret_problem = "there is no such interface";
    return std::nullopt;
  }
  if (link->state != ifm_state_up) {
    *ret_problem = link->state == ifm_state_admin_down ? "the interface is administratively down"
                                                       : "the interface has no carrier";
    return std::nullopt;
  }
  if (link->of_vrf) {
    *ret_problem = "the interface is in a VRF; sessions are run in the default VRF only";
    return std::nullopt;
  }
  // Packets to ourselves come back, so that the session would be up whatever the network does.
  if (std::any_of(addresses_.begin(), addresses_.end(), [&session](const local_address& local) {
        return local.address == session.key.destination;
      })) {
    *ret_problem = "the address is one of this router's own";
    return std::nullopt;
  }
  const std::uint32_t source = source_on(link->ifindex, session);
  if (source == 0) {
    *ret_problem = session.source == 0 ? "the interface has no IPv4 address"
                                       : "the interface does not have the source address";
    return std::nullopt;
  }
  return neighbor_path{link->ifindex, session.key.destination, source};
}

// The one that was asked for; else of those in the neighbor's network the first, as the kernel
// would choose; else any, for a link without networks.
std::uint32_t local_links::source_on(std::uint32_t ifindex,
                                     const session_config& session) const noexcept {
  std::uint32_t found = 0;
  for (const local_address& local : addresses_) {
    if (local.ifindex != ifindex || (session.source != 0 && session.source != local.address)) {
      continue;
    }
    if (session.source != 0 || (session.key.destination & local.mask) == local.network) {
      return local.address;
    }
    found = found == 0 ? local.address : found;
  }
  return found;
}

}  // namespace ot::bfd
