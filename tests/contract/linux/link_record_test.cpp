// How a kernel link message reads as a line state and a redundancy flag, also for what the machine
// that runs the tests may not have: bonds, bridges, broken messages.
#include "platform/linux/links/record.h"

#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include "platform/interface_manager.h"

namespace ot::testing {
namespace {

constexpr unsigned if_up = 1;
constexpr unsigned if_running = 1U << 6;
constexpr unsigned if_lower_up = 1U << 16;

class link_message {
 public:
  explicit link_message(unsigned flags, unsigned char family = AF_UNSPEC)
      : message_(mnl_nlmsg_put_header(bytes_)) {
    message_->nlmsg_type = RTM_NEWLINK;
    auto* header = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(message_, sizeof(ifinfomsg)));
    header->ifi_family = family;
    header->ifi_index = 7;
    header->ifi_flags = flags;
    mnl_attr_put_strz(message_, IFLA_IFNAME, "eth7");
  }

  link_message& operstate(std::uint8_t state) {
    mnl_attr_put_u8(message_, IFLA_OPERSTATE, state);
    return *this;
  }
  link_message& member_of(const char* kind, std::uint8_t slave_state) {
    nlattr* info = mnl_attr_nest_start(message_, IFLA_LINKINFO);
    mnl_attr_put_strz(message_, IFLA_INFO_SLAVE_KIND, kind);
    nlattr* data = mnl_attr_nest_start(message_, IFLA_INFO_SLAVE_DATA);
    mnl_attr_put_u8(message_, IFLA_BOND_SLAVE_STATE, slave_state);
    mnl_attr_nest_end(message_, data);
    mnl_attr_nest_end(message_, info);
    return *this;
  }
  nlmsghdr& header() { return *message_; }

  link_record read() {
    link_record link;
    EXPECT_TRUE(link_record_read(*message_, &link));
    return link;
  }

 private:
  alignas(nlmsghdr) char bytes_[512] = {};
  nlmsghdr* message_;
};

TEST(link_record, reads_index_and_name) {
  const link_record link = link_message(if_up).read();
  EXPECT_EQ(link.ifindex, 7U);
  EXPECT_EQ(link.name.view(), "eth7");
}

TEST(link_record, is_up_only_when_switched_on_with_a_carrier_and_no_objection) {
  struct {
    unsigned flags;
    std::uint8_t operstate;
    std::uint32_t expected;
  } const rows[] = {
      {if_up | if_lower_up, 6, ifm_state_up},                 // up
      {if_up | if_lower_up, 0, ifm_state_up},                 // the driver does not say
      {if_up | if_lower_up | if_running, 5, ifm_state_down},  // dormant
      {if_up | if_lower_up, 3, ifm_state_down},               // a lower layer is down
      {if_up | if_running, 6, ifm_state_down},                // no carrier
      {if_up, 2, ifm_state_down},
      {if_lower_up, 6, ifm_state_admin_down},
      {0, 2, ifm_state_admin_down},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(link_message(row.flags).operstate(row.operstate).read().state, row.expected)
        << "flags " << row.flags << " operstate " << int{row.operstate};
  }
  EXPECT_EQ(link_message(if_up | if_lower_up).read().state, ifm_state_up)
      << "a message without the operational state";
}

TEST(link_record, reports_a_bond_member_that_stands_by) {
  EXPECT_EQ(link_message(if_up).read().redundancy, 1U);
  EXPECT_EQ(link_message(if_up).member_of("bond", 0).read().redundancy, 1U);
  EXPECT_EQ(link_message(if_up).member_of("bond", 1).read().redundancy, 0U);
  EXPECT_EQ(link_message(if_up).member_of("bridge", 1).read().redundancy, 1U);
}

TEST(link_record, ignores_a_bridge_s_view_of_its_port_and_other_messages) {
  link_record link;
  EXPECT_FALSE(link_record_read(link_message(if_up, AF_BRIDGE).header(), &link));
  link_message other(if_up);
  other.header().nlmsg_type = RTM_NEWADDR;
  EXPECT_FALSE(link_record_read(other.header(), &link));
  link_message cut(if_up);
  cut.header().nlmsg_len = NLMSG_LENGTH(sizeof(ifinfomsg)) - 1;
  EXPECT_FALSE(link_record_read(cut.header(), &link));
}

TEST(link_record, stops_at_a_malformed_attribute) {
  link_message cut(if_up);
  cut.operstate(6).header().nlmsg_len -= 3;  // the last attribute sticks out
  EXPECT_EQ(cut.read().name.view(), "eth7");
}

}  // namespace
}  // namespace ot::testing
