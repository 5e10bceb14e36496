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
  explicit link_message(unsigned flags, const char* name = "eth7",
                        unsigned char family = AF_UNSPEC) {
    mnl_nlmsg_put_header(bytes_)->nlmsg_type = RTM_NEWLINK;
    auto* link = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(&header(), sizeof(ifinfomsg)));
    link->ifi_family = family;
    link->ifi_index = 7;
    link->ifi_flags = flags;
    if (name != nullptr) {
      mnl_attr_put_strz(&header(), IFLA_IFNAME, name);
    }
  }

  link_message& operstate(std::uint8_t state) {
    mnl_attr_put_u8(&header(), IFLA_OPERSTATE, state);
    return *this;
  }
  link_message& member_of(const char* kind) {
    nlattr* info = mnl_attr_nest_start(&header(), IFLA_LINKINFO);
    mnl_attr_put_strz(&header(), IFLA_INFO_SLAVE_KIND, kind);
    mnl_attr_nest_end(&header(), info);
    return *this;
  }
  link_message& member_of(const char* kind, std::uint8_t slave_state) {
    nlattr* info = mnl_attr_nest_start(&header(), IFLA_LINKINFO);
    mnl_attr_put_strz(&header(), IFLA_INFO_SLAVE_KIND, kind);
    nlattr* data = mnl_attr_nest_start(&header(), IFLA_INFO_SLAVE_DATA);
    mnl_attr_put_u8(&header(), IFLA_BOND_SLAVE_STATE, slave_state);
    mnl_attr_nest_end(&header(), data);
    mnl_attr_nest_end(&header(), info);
    return *this;
  }
  link_message& kind(const char* kind) {
    nlattr* info = mnl_attr_nest_start(&header(), IFLA_LINKINFO);
    mnl_attr_put_strz(&header(), IFLA_INFO_KIND, kind);
    mnl_attr_nest_end(&header(), info);
    return *this;
  }
  link_message& number(std::uint16_t attribute, std::uint32_t value) {
    mnl_attr_put_u32(&header(), attribute, value);
    return *this;
  }
  // As wireless extensions tell of themselves: the flags and the name, and nothing else of the
  // link.
  link_message& wireless() {
    const char event[8] = {};
    mnl_attr_put(&header(), IFLA_WIRELESS, sizeof event, event);
    return *this;
  }
  nlmsghdr& header() { return *reinterpret_cast<nlmsghdr*>(bytes_); }

  link_record read(const link_record* known = nullptr) {
    link_record link;
    EXPECT_TRUE(link_record_read(header(), known, &link));
    return link;
  }
  bool tells_nothing(const link_record* known = nullptr) {
    link_record link;
    return !link_record_read(header(), known, &link);
  }

 private:
  alignas(nlmsghdr) char bytes_[512] = {};
};

// All that the kernel tells in its ordinary messages and that is read of them.
link_message whole(unsigned flags, std::uint8_t operstate = 6, const char* name = "eth7") {
  return link_message(flags, name).operstate(operstate).number(IFLA_MTU, 1500);
}

TEST(link_record, reads_index_and_name) {
  const link_record link = whole(if_up).read();
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
    EXPECT_EQ(whole(row.flags, row.operstate).read().state, row.expected)
        << "flags " << row.flags << " operstate " << int{row.operstate};
  }
}

TEST(link_record, reports_a_bond_member_that_stands_by) {
  EXPECT_EQ(whole(if_up).read().redundancy, 1U);
  EXPECT_EQ(whole(if_up).member_of("bond", 0).read().redundancy, 1U);
  EXPECT_EQ(whole(if_up).member_of("bond", 1).read().redundancy, 0U);
  EXPECT_EQ(whole(if_up).member_of("bridge", 1).read().redundancy, 1U);
}

TEST(link_record, keeps_the_operational_state_that_a_message_does_not_tell) {
  const link_record dormant = whole(if_up | if_lower_up, 5).read();
  const link_record up = whole(if_up | if_lower_up, 6).read();
  const link_record unsaid = whole(if_up | if_lower_up, 0).read();
  link_message wireless = link_message(if_up | if_lower_up | if_running).wireless();
  EXPECT_EQ(wireless.read(&dormant).state, ifm_state_down);
  EXPECT_EQ(wireless.read(&up).state, ifm_state_up);
  EXPECT_EQ(wireless.read(&unsaid).state, ifm_state_up);
  const link_record after = wireless.read(&dormant);
  EXPECT_EQ(wireless.read(&after).state, ifm_state_down) << "however many there are";
}

TEST(link_record, takes_the_flags_of_each_message) {
  const link_record up = whole(if_up | if_lower_up).read();
  EXPECT_EQ(link_message(if_up).wireless().read(&up).state, ifm_state_down);
  const link_record off = link_message(0).wireless().read(&up);
  EXPECT_EQ(off.state, ifm_state_admin_down);
  EXPECT_EQ(link_message(if_up | if_lower_up).wireless().read(&off).state, ifm_state_up);
}

TEST(link_record, keeps_the_part_in_a_bond_that_a_message_does_not_tell) {
  const link_record standby = whole(if_up).number(IFLA_MASTER, 3).member_of("bond", 1).read();
  const link_record active = whole(if_up).number(IFLA_MASTER, 3).member_of("bond", 0).read();
  link_message silent[] = {
      link_message(if_up).wireless(),
      link_message(if_up).operstate(6),
      link_message(if_up).operstate(6).kind("veth"),
      link_message(if_up).operstate(6).member_of("bond"),
      whole(if_up).number(IFLA_MASTER, 3),
      whole(if_up).number(IFLA_MASTER, 3).kind("veth"),
  };
  for (link_message& message : silent) {
    const auto place = &message - silent;
    EXPECT_EQ(message.read(&standby).redundancy, 0U) << place;
    EXPECT_EQ(message.read(&active).redundancy, 1U) << place;
  }
}

TEST(link_record, stands_by_no_longer_when_it_is_released) {
  const link_record standby = whole(if_up).number(IFLA_MASTER, 3).member_of("bond", 1).read();
  EXPECT_EQ(whole(if_up).read(&standby).redundancy, 1U) << "a plain interface has no kind";
  EXPECT_EQ(whole(if_up).kind("veth").read(&standby).redundancy, 1U);
  EXPECT_EQ(whole(if_up).number(IFLA_MASTER, 4).member_of("bridge").read(&standby).redundancy, 1U);
}

TEST(link_record, keeps_the_name_that_a_message_does_not_tell) {
  const link_record known = whole(if_up).read();
  EXPECT_EQ(link_message(if_up, nullptr).operstate(2).read(&known).name.view(), "eth7");
  EXPECT_EQ(link_message(if_up, "").operstate(2).read(&known).name.view(), "eth7");
  EXPECT_EQ(link_message(if_up, "lan7").wireless().read(&known).name.view(), "lan7");
}

TEST(link_record, knows_no_link_of_which_not_enough_was_told) {
  EXPECT_TRUE(link_message(if_up | if_lower_up).wireless().tells_nothing());
  EXPECT_TRUE(link_message(if_up | if_lower_up, nullptr).operstate(6).tells_nothing());
  EXPECT_FALSE(link_message(if_up | if_lower_up).operstate(6).tells_nothing());
}

TEST(link_record, ignores_a_bridge_s_view_of_its_port_and_other_messages) {
  const link_record known = whole(if_up).read();
  EXPECT_TRUE(link_message(if_up, "eth7", AF_BRIDGE).operstate(6).tells_nothing(&known));
  link_message other = whole(if_up);
  other.header().nlmsg_type = RTM_NEWADDR;
  EXPECT_TRUE(other.tells_nothing(&known));
  link_message cut = whole(if_up);
  cut.header().nlmsg_len = NLMSG_LENGTH(sizeof(ifinfomsg)) - 1;
  EXPECT_TRUE(cut.tells_nothing(&known));
  link_message nobody = whole(if_up);
  static_cast<ifinfomsg*>(mnl_nlmsg_get_payload(&nobody.header()))->ifi_index = 0;
  EXPECT_TRUE(nobody.tells_nothing(&known));
}

TEST(link_record, stops_at_a_malformed_attribute) {
  const link_record known = whole(if_up | if_lower_up, 5).read();
  link_message cut = link_message(if_up | if_lower_up, "lan7").operstate(6);
  cut.header().nlmsg_len -= 4;  // the last attribute sticks out
  EXPECT_EQ(cut.read(&known).name.view(), "lan7");
  EXPECT_EQ(cut.read(&known).state, ifm_state_down);
}

TEST(link_record, tells_a_member_of_a_vrf) {
  const auto of_red = [] { return whole(if_up).number(IFLA_MASTER, 4).member_of("vrf"); };
  EXPECT_FALSE(whole(if_up).read().of_vrf);
  EXPECT_TRUE(of_red().read().of_vrf);
  const link_record member = of_red().read();
  EXPECT_FALSE(whole(if_up).read(&member).of_vrf) << "it has no master any more";
  EXPECT_FALSE(whole(if_up).number(IFLA_MASTER, 4).member_of("bridge").read(&member).of_vrf);
  EXPECT_TRUE(link_message(if_up).read(&member).of_vrf) << "a short message";
}

}  // namespace
}  // namespace ot::testing
