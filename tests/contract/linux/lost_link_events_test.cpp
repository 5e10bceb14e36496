// The interface manager when the kernel had to drop events: it reads everything again and reports
// the differences as ordinary notifications.
#include <gmock/gmock.h>
#include <linux/rtnetlink.h>

#include "tests/contract/linux/event_sockets.h"
#include "tests/contract/linux/link_watch.h"
#include "tests/contract/linux/network_namespace.h"

namespace ot::testing {
namespace {

using ::testing::Contains;

TEST(lost_link_events, are_made_good_by_reading_everything_again) {
  if (const std::string reason = no_namespace_reason(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  in_namespace([] {
    ip("link add stays type veth peer name p0");
    ip("link add goes type veth peer name p1");
    ip("link add old type veth peer name p2");
    ip("link add one type veth peer name two");
    link_watch watch;
    watch.register_both();
    watch.take();
    ASSERT_EQ(shrink_event_sockets(RTMGRP_LINK), 1);
    for (int i = 0; i < 20; ++i) {  // the flood in which the rest is lost
      ip("link set lo up");
      ip("link set lo down");
    }
    ip("link del goes");
    ip("link set old name new");
    ip("link set one name three");
    ip("link set two name one");
    ip("link set three name two");
    ip("link set stays up");
    ip("link set p0 up");
    ip("link add fresh type veth peer name p3");
    ASSERT_GT(dropped_messages(), 0UL);

    const auto reported = watch.run_until_reported(
        {"-goes", "-p1", "-old", "+new state=1 redundancy=1", "+stays state=3", "+p0 state=3",
         "-one", "-two", "+one state=1 redundancy=1", "+two state=1 redundancy=1",
         "+fresh state=1 redundancy=1"});
    const auto place = [&](const char* item) {
      return std::find(reported.begin(), reported.end(), item) - reported.begin();
    };
    EXPECT_LT(place("-two"), place("+two state=1 redundancy=1"));
    EXPECT_LT(place("-one"), place("+one state=1 redundancy=1"));
    EXPECT_LT(place("-one"), place("+two state=1 redundancy=1")) << "deletions come first";

    ip("link set fresh name later");  // and events are followed as before
    EXPECT_THAT(watch.run_until_reported({"+later state=1 redundancy=1"}), Contains("-fresh"));
  });
}

}  // namespace
}  // namespace ot::testing
