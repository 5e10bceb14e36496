#include "platform/linux/routes/policy_rules.h"

#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>

#include "platform/linux/netlink/attributes.h"

namespace ot {
namespace {

constexpr std::uint32_t not_suppressed = 0xffffffff;
constexpr const char* loopback_name = "lo";  // where the kernel sees our question come from

struct rule {
  std::uint32_t table = 0;
  bool l3mdev = false;
  bool looks_up = false;  // in a table, and does nothing else
  bool never_ours = false;
};

// What a rule asks of a packet that ours, from nowhere and without a mark, does not have.
bool asks_too_much(const fib_rule_hdr& header, std::uint32_t mark, std::uint32_t mark_mask,
                   bool from_elsewhere) noexcept {
  return header.src_len != 0 || header.tos != 0 || (mark & mark_mask) != 0 || from_elsewhere;
}

rule read(const nlmsghdr& message, const fib_rule_hdr& header) noexcept {
  rule found;
  found.table = header.table;
  bool other = header.dst_len != 0;  // an attribute that may or may not concern our question
  bool from_elsewhere = false;
  std::uint32_t mark = 0;
  std::uint32_t mark_mask = 0xffffffff;
  netlink_walk(netlink_attributes<fib_rule_hdr>(message),
               [&](std::uint16_t type, netlink_bytes value) {
                 switch (type) {
                   case FRA_TABLE:
                     found.table = netlink_number<std::uint32_t>(value);
                     break;
                   case FRA_L3MDEV:
                     found.l3mdev = netlink_number<std::uint8_t>(value) != 0;
                     break;
                   case FRA_FWMARK:
                     mark = netlink_number<std::uint32_t>(value);
                     break;
                   case FRA_FWMASK:
                     mark_mask = netlink_number<std::uint32_t>(value);
                     break;
                   case FRA_IIFNAME:
                     from_elsewhere = netlink_text(value) != loopback_name;
                     break;
                   case FRA_SUPPRESS_PREFIXLEN:
                   case FRA_SUPPRESS_IFGROUP:
                     other |= netlink_number<std::uint32_t>(value) != not_suppressed;
                     break;
                   case FRA_PRIORITY:
                   case FRA_PROTOCOL:
                   case FRA_SRC:
                   case FRA_PAD:
                     break;
                   default:
                     other = true;
                 }
               });
  const bool inverted = (header.flags & FIB_RULE_INVERT) != 0;
  found.never_ours = !inverted && asks_too_much(header, mark, mark_mask, from_elsewhere);
  found.looks_up = header.action == FR_ACT_TO_TBL && !other && !inverted;
  return found;
}

}  // namespace

void policy_rules_reader::take(const nlmsghdr& message) noexcept {
  if (message.nlmsg_type != RTM_NEWRULE || message.nlmsg_len < NLMSG_LENGTH(sizeof(fib_rule_hdr))) {
    return;
  }
  const rule next = read(message, *static_cast<const fib_rule_hdr*>(NLMSG_DATA(&message)));
  if (next.never_ours) {
    return;
  }
  // What comes after a table cannot hide it.
  const bool local = next.looks_up && !next.l3mdev && next.table == RT_TABLE_LOCAL;
  const bool main = next.looks_up && !next.l3mdev && next.table == RT_TABLE_MAIN;
  const bool vrfs = next.looks_up && next.l3mdev;
  main_hidden_ |= !main_seen_ && !(local || main || vrfs);
  vrfs_hidden_ |= !vrfs_seen_ && !(local || vrfs);
  main_seen_ |= main;
  vrfs_seen_ |= vrfs;
}

hidden_tables policy_rules_reader::result() const noexcept {
  return {main_hidden_ || !main_seen_, vrfs_hidden_ || !vrfs_seen_};
}

int policy_rules_read(netlink_socket& requests, hidden_tables* ret) noexcept {
  *ret = hidden_tables{};
  netlink_request request;
  nlmsghdr* message = mnl_nlmsg_put_header(request.bytes);
  message->nlmsg_type = RTM_GETRULE;
  message->nlmsg_flags = NLM_F_DUMP;
  auto* header =
      static_cast<fib_rule_hdr*>(mnl_nlmsg_put_extra_header(message, sizeof(fib_rule_hdr)));
  header->family = AF_INET;
  policy_rules_reader reader;
  const int status = requests.request(
      message,
      [](void* to, const nlmsghdr& part) { static_cast<policy_rules_reader*>(to)->take(part); },
      &reader);
  if (status == 0) {
    *ret = reader.result();
  }
  return status;
}

}  // namespace ot
