// BFD tracks as the show command prints them, through configuration, records and the front-end.
#include "show/show.h"
#include "tests/unit/show/output.h"
#include "tests/unit/sources/bfd/fixture.h"

namespace ot::test {
namespace {

using testing::HasSubstr;

class bfd_oper : public bfd_service {
 protected:
  void SetUp() override {
    bfd_service::SetUp();
    field::set_wall_clock(1'700'000'000);
    ASSERT_EQ(configure("peer-b"), 0);
    peer_answers();
  }
  // `view`: "all" for the detailed one.
  static std::string shown(const char* name, const char* view = nullptr) {
    return printed([&] {
      const char* const words[] = {"object_tracking", "show", "track", name, view};
      ot_show_track(words);
    });
  }
};

TEST_F(bfd_oper, in_detail) {
  EXPECT_EQ(shown("peer-b", "all"),
            "\nTrack peer-b \n"
            "\tInterface Gi1 Destination Address 10.0.0.2\n"
            "\tBFD Reachability is UP \n"
            "\t1 change, last change 22:13:20 UTC Tue Nov 14 2023\n");
  peer_silent();
  EXPECT_EQ(shown("peer-b", "all"),
            "\nTrack peer-b \n"
            "\tInterface Gi1 Destination Address 10.0.0.2\n"
            "\tBFD Reachability is DOWN \n"
            "\t2 changes, last change 22:13:20 UTC Tue Nov 14 2023\n");
}

TEST_F(bfd_oper, in_the_table) {
  const std::string table = shown("all-tracks");
  EXPECT_THAT(table, HasSubstr("\npeer-b"));
  EXPECT_THAT(table, HasSubstr("BFD Session"));
  EXPECT_THAT(table, HasSubstr("reachability"));
  EXPECT_THAT(table, HasSubstr("Up"));
}

}  // namespace
}  // namespace ot::test
