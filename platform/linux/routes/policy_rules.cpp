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

// A rule's attributes, as far as they matter here.
struct rule_attributes {
  std::uint32_t table = 0;
  std::uint32_t mark = 0;
  std::uint32_t mark_mask = 0xffffffff;
  bool l3mdev = false;
  bool from_elsewhere = false;
  bool others = false;  // that may or may not concern our question
};

rule_attributes read_attributes(const nlmsghdr& message) noexcept {
  rule_attributes found;
  netlink_walk(netlink_attributes<fib_rule_hdr>(message),
               [&found](std::uint16_t type, netlink_bytes value) {
                 const auto number = netlink_number<std::uint32_t>(value);
                 switch (type) {
                   case FRA_TABLE:
                     found.table = number;
                     break;
                   case FRA_FWMARK:
                     found.mark = number;
                     break;
                   case FRA_FWMASK:
                     found.mark_mask = number;
                     break;
                   case FRA_L3MDEV:
                     found.l3mdev = netlink_number<std::uint8_t>(value) != 0;
                     break;
                   case FRA_IIFNAME:
                     found.from_elsewhere = netlink_text(value) != loopback_name;
                     break;
                   case FRA_SUPPRESS_PREFIXLEN:
                   case FRA_SUPPRESS_IFGROUP:
                     found.others |= number != not_suppressed;
                     break;
                   case FRA_PRIORITY:
                   case FRA_PROTOCOL:
                   case FRA_SRC:
                   case FRA_PAD:
                     break;
                   default:
                     found.others = true;
                 }
               });
  return found;
}

// A rule for packets that ours, from nowhere and without a mark, is none of.
bool is_never_ours(const fib_rule_hdr& header, const rule_attributes& rule) noexcept {
  const bool inverted = (header.flags & FIB_RULE_INVERT) != 0;
  return !inverted && (header.src_len != 0 || header.tos != 0 ||
                       (rule.mark & rule.mark_mask) != 0 || rule.from_elsewhere);
}

// A rule that has every packet of ours looked up in a table, and does nothing else.
bool looks_up(const fib_rule_hdr& header, const rule_attributes& rule) noexcept {
  return header.action == FR_ACT_TO_TBL && header.dst_len == 0 && !rule.others &&
         (header.flags & FIB_RULE_INVERT) == 0;
}

}  // namespace

void policy_rules_reader::take(const nlmsghdr& message) noexcept {
  if (message.nlmsg_type != RTM_NEWRULE || message.nlmsg_len < NLMSG_LENGTH(sizeof(fib_rule_hdr))) {
    return;
  }
  const auto& header = *static_cast<const fib_rule_hdr*>(NLMSG_DATA(&message));
  const rule_attributes rule = read_attributes(message);
  if (is_never_ours(header, rule)) {
    return;
  }
  // What comes after a table cannot hide it.
  const bool plain = looks_up(header, rule);
  const bool vrfs = plain && rule.l3mdev;
  const bool local = plain && !vrfs && rule.table == RT_TABLE_LOCAL;
  const bool main = plain && !vrfs && rule.table == RT_TABLE_MAIN;
  hidden_.local |= unseen_.local && !(local || vrfs);
  hidden_.main |= unseen_.main && !(local || main || vrfs);
  hidden_.vrfs |= unseen_.vrfs && !(local || vrfs);
  unseen_.local &= !local;
  unseen_.main &= !main;
  unseen_.vrfs &= !vrfs;
}

hidden_tables policy_rules_reader::result() const noexcept {
  return {hidden_.local || unseen_.local, hidden_.main || unseen_.main,
          hidden_.vrfs || unseen_.vrfs};
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
