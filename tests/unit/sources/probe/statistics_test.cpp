// Reading an operation's result from the probe service's table.
#include "sources/probe/statistics.h"

#include "tests/unit/sources/probe/fixture.h"

namespace ot::test {
namespace {

using testing::ElementsAre;

class probe_read : public probe_service {};

TEST_F(probe_read, without_a_place_for_the_result_is_22) {
  trace();
  EXPECT_EQ(shm_read_qmon_stats(7, nullptr), invalid_argument);
  EXPECT_THAT(field::take_traces(), ElementsAre("Entering (shm_read_qmon_stats) : ",
                                                " (shm_read_qmon_stats) : invalid arg "));
}

TEST_F(probe_read, without_either_library_is_3_and_leaves_the_place_alone) {
  for (const char* missing : {infrastructure, component}) {
    field::probe_package_installed();
    field::probe_library_missing(missing);
    qmon_stats stats{5, 6};
    trace();
    EXPECT_EQ(shm_read_qmon_stats(7, &stats), 3);
    EXPECT_THAT(field::take_traces(), ElementsAre("Entering (shm_read_qmon_stats) : "));
    EXPECT_EQ(stats.latestReturnCode, 5U);
    EXPECT_EQ(stats.latestResponseTime, 6U);
    EXPECT_EQ(field::probe_library_use(infrastructure).held, 0);
  }
}

TEST_F(probe_read, of_an_operation_that_does_not_run_is_no_result) {
  qmon_stats stats{5, 6};
  EXPECT_EQ(shm_read_qmon_stats(7, &stats), 0);
  EXPECT_EQ(stats.latestReturnCode, 0U);
  EXPECT_EQ(stats.latestResponseTime, 0U);
}

TEST_F(probe_read, gives_the_second_and_third_field_of_the_entry) {
  field::probe_result(7, 4, 250);
  qmon_stats stats;
  EXPECT_EQ(shm_read_qmon_stats(7, &stats), 0);
  EXPECT_EQ(stats.latestReturnCode, 4U);
  EXPECT_EQ(stats.latestResponseTime, 250U);
}

TEST_F(probe_read, a_package_that_is_installed_later_is_found) {
  field::probe_package_removed();
  field::probe_result(7, 1);
  ASSERT_EQ(create("t"), 0);
  next_poll();
  EXPECT_EQ(track("t").state, track_state::unknown);
  EXPECT_TRUE(polled("t"));
  field::probe_package_installed();
  next_poll();
  EXPECT_EQ(track("t").state, track_state::up);
}

}  // namespace
}  // namespace ot::test
