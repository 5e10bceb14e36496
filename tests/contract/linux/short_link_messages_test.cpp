// Link messages that do not tell everything, as the kernel sends them for wireless events: what is
// absent stays as it is known, on the whole way from the socket to whoever is notified.
#include <gmock/gmock.h>
#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <string>
#include <vector>

#include "platform/linux/links/vrf_devices.h"
#include "tests/contract/linux/link_watch.h"
#include "tests/contract/linux/network_namespace.h"

namespace ot::testing {
namespace {

using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr unsigned flag_lower_up = 1U << 16;

class short_message {
 public:
  short_message(std::uint16_t type, unsigned ifindex, unsigned flags = 0) {
    mnl_nlmsg_put_header(bytes_)->nlmsg_type = type;
    auto* link = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(header(), sizeof(ifinfomsg)));
    link->ifi_index = static_cast<int>(ifindex);
    link->ifi_flags = flags;
  }
  short_message& name(const char* text) {
    mnl_attr_put_strz(header(), IFLA_IFNAME, text);
    return *this;
  }
  short_message& wireless() {
    const char event[8] = {};
    mnl_attr_put(header(), IFLA_WIRELESS, sizeof event, event);
    return *this;
  }
  short_message& vrf(std::uint32_t table) {
    nlattr* info = mnl_attr_nest_start(header(), IFLA_LINKINFO);
    mnl_attr_put_strz(header(), IFLA_INFO_KIND, "vrf");
    if (table != 0) {
      nlattr* data = mnl_attr_nest_start(header(), IFLA_INFO_DATA);
      mnl_attr_put_u32(header(), IFLA_VRF_TABLE, table);
      mnl_attr_nest_end(header(), data);
    }
    mnl_attr_nest_end(header(), info);
    return *this;
  }
  // To all that listen for link events.
  void send() {
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    sockaddr_nl to{};
    to.nl_family = AF_NETLINK;
    to.nl_groups = RTMGRP_LINK;
    EXPECT_EQ(sendto(fd, bytes_, header()->nlmsg_len, 0, reinterpret_cast<const sockaddr*>(&to),
                     sizeof to),
              static_cast<ssize_t>(header()->nlmsg_len));
    close(fd);
  }

 private:
  nlmsghdr* header() { return reinterpret_cast<nlmsghdr*>(bytes_); }

  alignas(nlmsghdr) char bytes_[512] = {};
};

TEST(short_link_messages, leave_a_dormant_interface_down) {
  if (const std::string reason = no_namespace_reason(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  in_namespace([] {
    ip("link add dorms type veth peer name p0");
    ip("link add later type veth peer name p1");
    ip("link set p0 up");
    ip("link set dorms up mode dormant");
    ip("link set dorms state dormant");
    link_watch watch;
    watch.register_both();
    watch.run_until_reported({"+dorms state=2", "+p0 state=3"});
    const unsigned ifindex = if_nametoindex("dorms");
    const unsigned flags = IFF_UP | IFF_RUNNING | flag_lower_up;
    short_message(RTM_NEWLINK, ifindex, flags).name("dorms").wireless().send();
    short_message(RTM_NEWLINK, ifindex, flags).wireless().send();
    short_message(RTM_NEWLINK, 4711, flags).name("unknown").wireless().send();
    ip("link set later name last");
    // The kernel may still have been telling of p0's carrier.
    EXPECT_THAT(watch.run_until_reported({"+last state=1 redundancy=1"}),
                Not(Contains(AnyOf(HasSubstr("dorms"), HasSubstr("unknown")))));
  });
}

TEST(short_link_messages, leave_a_standby_bond_member_standing_by) {
  if (const std::string reason = no_namespace_reason(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  in_namespace([] {
    if (!ip_can("link add bond0 type bond mode active-backup miimon 10")) {
      GTEST_SKIP() << "this kernel has no bonding";
    }
    for (const char* name : {"v", "w"}) {
      const std::string near = std::string(name) + "0";
      const std::string far = std::string(name) + "1";
      std::string pair = "link add " + near;
      pair.append(" type veth peer name ").append(far);
      ip(pair);
      ip("link set " + far + " up");
      ip("link set " + near + " master bond0");
    }
    ip("link add later type veth peer name p1");
    ip("link set bond0 up");
    link_watch watch;
    watch.register_attribute(ifc_attr_redundancy);
    ASSERT_THAT(watch.take(), ::testing::Contains("+w0 redundancy=0"));
    const unsigned flags = IFF_UP | IFF_RUNNING | flag_lower_up;
    short_message(RTM_NEWLINK, if_nametoindex("w0"), flags).name("w0").wireless().send();
    ip("link set later name last");
    EXPECT_THAT(watch.run_until_reported({"+last redundancy=1"}),
                ::testing::Not(::testing::Contains("+w0 redundancy=1")));
  });
}

std::vector<std::string> vrf_news;

void note_vrf(const vrf_device& device, bool gone) {
  vrf_news.push_back((gone ? "-" : "+") + std::string(device.name.view()) + " " +
                     std::to_string(device.table));
}

class vrf_watch {
 public:
  vrf_watch() {
    vrf_news.clear();
    EXPECT_EQ(evm_create(&manager_), 0);
    EXPECT_EQ(devices_.open(manager_, note_vrf), 0);
  }
  ~vrf_watch() {
    devices_.close();
    evm_destroy(manager_);
  }
  vrf_watch(const vrf_watch&) = delete;
  vrf_watch& operator=(const vrf_watch&) = delete;

  // What was reported of all that was sent before.
  std::vector<std::string> take() {
    const std::string last = "+last" + std::to_string(++taken_) + " 1";
    short_message(RTM_NEWLINK, 9000 + taken_)
        .name(last.substr(1, last.find(' ') - 1).c_str())
        .vrf(1)
        .send();
    const bool in_time =
        run_loop_until(manager_, [&] { return !vrf_news.empty() && vrf_news.back() == last; });
    EXPECT_TRUE(in_time) << "not reported in time";
    if (!in_time) {
      return {};
    }
    std::vector<std::string> news = std::exchange(vrf_news, {});
    news.pop_back();
    return news;
  }

 private:
  evm* manager_ = nullptr;
  vrf_devices devices_;
  unsigned taken_ = 0;
};

TEST(short_link_messages, leave_the_name_and_the_table_of_a_vrf) {
  if (const std::string reason = no_namespace_reason(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  in_namespace([] {
    vrf_watch watch;
    short_message(RTM_NEWLINK, 77).name("red").vrf(10).send();
    EXPECT_THAT(watch.take(), ElementsAre("+red 10"));
    short_message(RTM_NEWLINK, 77).name("red").wireless().send();
    short_message(RTM_NEWLINK, 77).name("red").vrf(0).send();
    short_message(RTM_NEWLINK, 77).vrf(10).send();
    short_message(RTM_NEWLINK, 78).vrf(11).send();
    EXPECT_THAT(watch.take(), IsEmpty());
    short_message(RTM_NEWLINK, 77).vrf(12).send();
    EXPECT_THAT(watch.take(), ElementsAre("-red 10", "+red 12"));
    short_message(RTM_DELLINK, 77).send();
    short_message(RTM_DELLINK, 77).send();
    EXPECT_THAT(watch.take(), ElementsAre("-red 12"));
  });
}

}  // namespace
}  // namespace ot::testing
