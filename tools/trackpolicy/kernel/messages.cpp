// Interfaces, what errors say, and the filter.
#include "tools/trackpolicy/kernel/messages.h"

#include <linux/filter.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

#include "platform/linux/links/record.h"
#include "platform/linux/links/vrf_record.h"
#include "platform/linux/netlink/attributes.h"

namespace ot::trackpolicy {

bool read_link(const nlmsghdr& message, link_fact* ret, bool* ret_gone) {
  link_fact made;
  made.index = link_message_index(message);
  if (made.index == 0) {
    return false;
  }
  bool elsewhere = false;  // what it lies on is in another namespace
  netlink_walk(netlink_attributes<ifinfomsg>(message),
               [&](std::uint16_t type, netlink_bytes value) {
                 if (type == IFLA_IFNAME) {
                   made.name = netlink_text(value);
                 } else if (type == IFLA_LINK) {
                   made.lower = netlink_number<std::uint32_t>(value);
                 }
                 elsewhere |= type == IFLA_LINK_NETNSID;
               });
  if (elsewhere) {
    made.lower = 0;
  }
  vrf_device vrf;
  made.vrf_table = vrf_device_read(message, &vrf) ? vrf.table : 0;
  ifinfomsg header;
  std::memcpy(&header, NLMSG_DATA(&message), sizeof header);
  made.up = (header.ifi_flags & IFF_UP) != 0;
  *ret_gone = message.nlmsg_type == RTM_DELLINK;
  *ret = std::move(made);
  return *ret_gone || !ret->name.empty();
}

nlmsghdr* write_link_dump(char* place) {
  (void)begin_message<ifinfomsg>(place, RTM_GETLINK, NLM_F_DUMP);
  return message_at(place);
}

nlmsghdr* write_link_question(char* place) {
  begin_message<ifinfomsg>(place, RTM_GETLINK, 0)->ifi_index =
      1;  // every namespace has its loopback
  return message_at(place);
}

nlmsghdr* write_link_change(char* place, std::uint32_t index, bool up) {
  auto* const header = begin_message<ifinfomsg>(place, RTM_NEWLINK, 0);
  header->ifi_index = static_cast<int>(index);
  header->ifi_change = IFF_UP;
  header->ifi_flags = up ? static_cast<unsigned>(IFF_UP) : 0U;
  return message_at(place);
}

std::string error_text(const nlmsghdr& message) {
  std::string text;
  if (message.nlmsg_type != NLMSG_ERROR || (message.nlmsg_flags & NLM_F_ACK_TLVS) == 0 ||
      message.nlmsg_len < NLMSG_LENGTH(sizeof(nlmsgerr))) {
    return text;
  }
  nlmsgerr error;
  std::memcpy(&error, NLMSG_DATA(&message), sizeof error);
  // Unless the kernel was asked to leave it out, the request stands before the texts.
  std::size_t before = NLMSG_LENGTH(sizeof error);
  if ((message.nlmsg_flags & NLM_F_CAPPED) == 0) {
    before += NLMSG_ALIGN(error.msg.nlmsg_len) - sizeof(nlmsghdr);
  }
  if (before < message.nlmsg_len) {
    const auto* const first = reinterpret_cast<const std::byte*>(&message) + before;
    netlink_walk({first, message.nlmsg_len - before},
                 [&text](std::uint16_t type, netlink_bytes value) {
                   if (type == NLMSGERR_ATTR_MSG) {
                     text = netlink_text(value);
                   }
                 });
  }
  return text.ends_with('.') ? text.substr(0, text.size() - 1) : text;
}

// The machine of the kernel's filters loads numbers in network byte order.
int filter_foreign_routes(int fd) noexcept {
  constexpr auto loaded = [](std::uint16_t number) { return std::uint32_t{htons(number)}; };
  constexpr auto step = [](unsigned code, std::uint32_t value, std::uint8_t yes = 0,
                           std::uint8_t no = 0) {
    return sock_filter{static_cast<std::uint16_t>(code), yes, no, value};
  };
  constexpr std::uint32_t type_at = offsetof(nlmsghdr, nlmsg_type);
  constexpr std::uint32_t flags_at = offsetof(nlmsghdr, nlmsg_flags);
  constexpr std::uint32_t protocol_at = NLMSG_HDRLEN + offsetof(rtmsg, rtm_protocol);
  std::array program{
      step(BPF_LD | BPF_H | BPF_ABS, type_at),
      step(BPF_JMP | BPF_JEQ | BPF_K, loaded(RTM_NEWROUTE), 1, 0),
      step(BPF_JMP | BPF_JEQ | BPF_K, loaded(RTM_DELROUTE), 0, 4),
      step(BPF_LD | BPF_H | BPF_ABS, flags_at),
      step(BPF_JMP | BPF_JSET | BPF_K, loaded(NLM_F_REPLACE), 2, 0),
      step(BPF_LD | BPF_B | BPF_ABS, protocol_at),
      step(BPF_JMP | BPF_JEQ | BPF_K, route_protocol, 0, 1),
      step(BPF_RET | BPF_K, UINT32_MAX),
      step(BPF_RET | BPF_K, 0),
  };
  const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  return setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter) == 0 ? 0 : errno;
}

}  // namespace ot::trackpolicy
