// The interface manager on the kernel's links: what happens to a link in a network namespace is
// reported as the service expects it.
#include <gmock/gmock.h>

#include "tests/contract/linux/link_watch.h"
#include "tests/contract/linux/network_namespace.h"

namespace ot::testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class interface_manager_linux : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string reason = no_namespace_reason(); !reason.empty()) {
      GTEST_SKIP() << reason;
    }
  }

  // Two ends of a cable, both switched on; returns when the kernel has noticed the carrier.
  static void add_cable() {
    ip("link add v0 type veth peer name v1");
    ip("link set v0 up");
    ip("link set v1 up");
    link_watch settling;
    settling.register_attribute(ifc_attr_state);
    settling.run_until_reported({"+v0 state=3", "+v1 state=3"});
  }
};

TEST_F(interface_manager_linux, reports_the_present_state_before_the_registration_returns) {
  in_namespace([] {
    add_cable();
    link_watch watch;
    watch.register_attribute(ifc_attr_state);
    EXPECT_THAT(watch.take(),
                ::testing::UnorderedElementsAre("+lo state=1", "+v0 state=3", "+v1 state=3"));
    EXPECT_EQ(watch.bulks(), 1U);
    watch.register_attribute(ifc_attr_redundancy);
    EXPECT_THAT(watch.take(), ::testing::UnorderedElementsAre(
                                  "+lo redundancy=1", "+v0 redundancy=1", "+v1 redundancy=1"));
  });
}

TEST_F(interface_manager_linux, counts_the_loopback_without_an_operational_state_as_up) {
  in_namespace([] {
    link_watch watch;
    watch.register_both();
    watch.take();
    ip("link set lo up");
    EXPECT_THAT(watch.run_until_reported({"+lo state=3"}), ElementsAre("+lo state=3"));
  });
}

TEST_F(interface_manager_linux, reports_a_lost_carrier_and_its_return) {
  in_namespace([] {
    add_cable();
    link_watch watch;
    watch.register_both();
    watch.take();
    ip("link set v1 down");
    EXPECT_THAT(watch.run_until_reported({"+v0 state=2"}), Contains("+v1 state=1"));
    ip("link set v1 up");
    EXPECT_THAT(watch.run_until_reported({"+v0 state=3"}), ::testing::Not(Contains("+v0 state=1")));
  });
}

TEST_F(interface_manager_linux, reports_administratively_down) {
  in_namespace([] {
    add_cable();
    link_watch watch;
    watch.register_both();
    watch.take();
    ip("link set v0 down");
    EXPECT_THAT(watch.run_until_reported({"+v0 state=1"}), Contains("+v0 state=1"));
  });
}

TEST_F(interface_manager_linux, does_not_report_what_did_not_change) {
  in_namespace([] {
    add_cable();
    link_watch watch;
    watch.register_both();
    watch.take();
    ip("link set v0 mtu 1400");
    ip("link set v0 alias uplink");
    ip("link set lo up");
    EXPECT_THAT(watch.run_until_reported({"+lo state=3"}), ElementsAre("+lo state=3"));
  });
}

TEST_F(interface_manager_linux, reports_a_rename_as_a_deletion_and_a_creation) {
  in_namespace([] {
    add_cable();
    link_watch watch;
    watch.register_both();
    watch.take();
    ip("link set v0 name uplink");
    EXPECT_THAT(watch.run_until_reported({"+uplink state=3 redundancy=1"}),
                ElementsAre("-v0", "+uplink state=3 redundancy=1"));
    std::uint32_t handle = 0;
    int status = -1;
    EXPECT_EQ(ifc_interface_find(watch.context(), "v0", &handle, &status), 0);
    EXPECT_EQ(status, 2);
  });
}

TEST_F(interface_manager_linux, reports_a_deletion_and_a_new_creation) {
  in_namespace([] {
    add_cable();
    link_watch watch;
    watch.register_both();
    watch.take();
    ip("link del v0");
    EXPECT_THAT(watch.run_until_reported({"-v0"}), Contains("-v0"));
    ip("link add v0 type veth peer name v1");
    EXPECT_THAT(watch.run_until_reported({"+v0 state=1 redundancy=1"}),
                Contains("+v0 state=1 redundancy=1"));
  });
}

TEST_F(interface_manager_linux, finds_an_interface_that_no_event_has_announced_yet) {
  in_namespace([] {
    link_watch watch;
    watch.register_both();
    watch.take();
    ip("link add fresh type veth peer name v1");
    std::uint32_t handle = 0;
    int status = -1;
    ASSERT_EQ(ifc_interface_find(watch.context(), "fresh", &handle, &status), 0);
    EXPECT_EQ(status, 0);
    ifc_name name;
    ASSERT_EQ(ifc_interface_name(watch.context(), handle, &name, &status), 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(name.view(), "fresh");
    std::uint32_t state = 0;
    ASSERT_EQ(ifc_state_query(watch.context(), handle, 0, &state, &status), 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(state, ifm_state_admin_down);
    EXPECT_THAT(watch.run_until_reported({"+fresh state=1 redundancy=1"}),
                Contains("+fresh state=1 redundancy=1"))
        << "the look-up must not swallow the news";
  });
}

TEST_F(interface_manager_linux, answers_2_for_what_does_not_exist) {
  in_namespace([] {
    add_cable();
    ip("link property add dev v0 altname other");
    link_watch watch;
    std::uint32_t handle = 77;
    int status = -1;
    const std::string too_long(40, 'x');
    for (const char* name : {"nowhere", "", "other", too_long.c_str()}) {
      EXPECT_EQ(ifc_interface_find(watch.context(), name, &handle, &status), 0);
      EXPECT_EQ(status, 2) << name;
    }
    EXPECT_EQ(handle, 77U);
    std::uint32_t state = 77;
    for (const std::uint32_t unknown : {0U, 4711U, 0xFFFFFFFFU}) {
      EXPECT_EQ(ifc_state_query(watch.context(), unknown, 0, &state, &status), 0);
      EXPECT_EQ(status, 2) << unknown;
    }
    EXPECT_EQ(state, 77U);
  });
}

TEST_F(interface_manager_linux, reports_a_standby_bond_member_as_not_redundant) {
  in_namespace([] {
    if (!ip_can("link add bond0 type bond mode active-backup miimon 10")) {
      GTEST_SKIP() << "this kernel has no bonding";
    }
    add_cable();
    ip("link set v0 down");
    ip("link add w0 type veth peer name w1");
    ip("link set w1 up");
    ip("link set v0 master bond0");
    ip("link set w0 master bond0");
    ip("link set bond0 up");
    link_watch watch;
    watch.register_both();
    const auto reported = watch.take();
    EXPECT_THAT(reported, Contains("+v0 redundancy=1"));
    EXPECT_THAT(reported, Contains("+w0 redundancy=0"));
    ip("link set bond0 type bond active_slave w0");
    EXPECT_THAT(watch.run_until_reported({"+w0 redundancy=1"}), Contains("+v0 redundancy=0"));
    ip("link set v0 nomaster");
    EXPECT_THAT(watch.run_until_reported({"+v0 redundancy=1"}), Contains("+v0 redundancy=1"));
  });
}

TEST_F(interface_manager_linux, refuses_what_it_does_not_offer) {
  in_namespace([] {
    link_watch watch;
    int status = 0;
    EXPECT_EQ(ifc_attr_register(watch.context(), 5, &status), 0);
    EXPECT_EQ(status, 22);
    EXPECT_THAT(watch.take(), IsEmpty());
    std::uint32_t id = 0;
    EXPECT_EQ(ifc_conn_ctx_to_connid(watch.context(), &id), 0);
    EXPECT_NE(id, 0U);
    ifc_conn_ctx unbound;
    EXPECT_EQ(ifc_attr_register(unbound, ifc_attr_state, &status), 22);
  });
}

}  // namespace
}  // namespace ot::testing
