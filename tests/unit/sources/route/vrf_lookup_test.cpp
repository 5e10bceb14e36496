// Requests to the VRF information service: names to ids and back, and registrations.
#include "sources/route/vrf.h"
#include "tests/unit/odd_answers.h"
#include "tests/unit/sources/route/fixture.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::ElementsAre;

constexpr int refused_code = 13;

class vrf_lookup : public route_service {
 protected:
  void SetUp() override {
    route_service::SetUp();
    add_blue();
    trace();
  }
};

TEST_F(vrf_lookup, gives_the_id_of_a_name) {
  EXPECT_EQ(ot_vmap_vrf_name_2_vrf_id("blue"), blue_id);
  EXPECT_EQ(ot_vmap_vrf_name_2_vrf_id("default"), vmap_c_vrf_id_dflt());
  EXPECT_EQ(ot_vmap_vrf_name_2_vrf_id("red"), 0U);
  EXPECT_THAT(field::take_traces(),
              ElementsAre("(ot_vmap_vrf_name_2_vrf_id): vrf: blue (60000007)",
                          "(ot_vmap_vrf_name_2_vrf_id): vrf: default (60000000)",
                          "(ot_vmap_vrf_name_2_vrf_id): vrf: red (0)"));
}

TEST_F(vrf_lookup, gives_the_name_of_an_id) {
  EXPECT_EQ(ot_vmap_vrf_id_2_vrf_name(blue_id), "blue");
  EXPECT_EQ(ot_vmap_vrf_id_2_vrf_name(vmap_c_vrf_id_dflt()), "default");
  EXPECT_EQ(ot_vmap_vrf_id_2_vrf_name(4711), "default");
}

TEST_F(vrf_lookup, a_failing_step_is_named_and_gives_0) {
  for (const char* operation :
       {"vmap_c_mdb_init", "vmap_c_mdb_add_vrf_by_vrf_name", "vmap_c_lookup"}) {
    field::fail_next(operation, refused_code);
    EXPECT_EQ(ot_vmap_vrf_name_2_vrf_id("blue"), 0U);
    EXPECT_THAT(field::take_traces(),
                ElementsAre(std::string{"(ot_vmap_vrf_name_2_vrf_id): failed: "} + operation + "()",
                            "(ot_vmap_vrf_name_2_vrf_id): vrf: blue (0)"));
  }
}

TEST_F(vrf_lookup, a_failing_step_is_named_and_gives_default) {
  for (const char* operation :
       {"vmap_c_mdb_init", "vmap_c_mdb_add_vrf_by_vrf_id", "vmap_c_lookup"}) {
    field::fail_next(operation, refused_code);
    EXPECT_EQ(ot_vmap_vrf_id_2_vrf_name(blue_id), "default");
    EXPECT_THAT(field::take_traces(),
                Contains(std::string{"(ot_vmap_vrf_id_2_vrf_name): failed: "} + operation + "()"));
  }
}

TEST_F(vrf_lookup, an_answer_without_a_reply_or_an_item_is_named_too) {
  struct row {
    odd_answers odd;
    const char* operation;
  };
  for (const row& failing : {row{{.no_reply = true}, "vmap_c_lrc_get_reply"},
                             row{{.no_item = true}, "vmap_c_lrc_get_reply_item_vrf"}}) {
    const with_odd_answers odd(failing.odd);
    const std::string failed = std::string{"): failed: "} + failing.operation + "()";
    EXPECT_EQ(ot_vmap_vrf_name_2_vrf_id("blue"), 0U);
    EXPECT_THAT(field::take_traces(), ElementsAre("(ot_vmap_vrf_name_2_vrf_id" + failed,
                                                  "(ot_vmap_vrf_name_2_vrf_id): vrf: blue (0)"));
    EXPECT_EQ(ot_vmap_vrf_id_2_vrf_name(blue_id), "default");
    EXPECT_THAT(field::take_traces(),
                ElementsAre("(ot_vmap_vrf_id_2_vrf_name" + failed,
                            "(ot_vmap_vrf_id_2_vrf_name): vrf: default (60000007)"));
  }
}

TEST_F(vrf_lookup, an_answer_that_reports_an_error_is_none) {
  field::fail_next("vmap_c_lookup", 0, refused_code);
  EXPECT_EQ(ot_vmap_vrf_name_2_vrf_id("blue"), 0U);
  field::fail_next("vmap_c_lookup", 0, refused_code);
  EXPECT_EQ(ot_vmap_vrf_id_2_vrf_name(blue_id), "default");
  EXPECT_EQ(ot_vmap_vrf_name_2_vrf_id("blue"), blue_id);
}

class vrf_registering : public vrf_lookup {
 protected:
  std::uint64_t handle = 0;
};

TEST_F(vrf_registering, is_made_once_for_a_handle) {
  ASSERT_EQ(ot_vmap_vrf_add("red", &handle), 0);
  const std::uint64_t first = handle;
  EXPECT_NE(first, 0U);
  EXPECT_EQ(ot_vmap_vrf_add("red", &handle), 0);
  EXPECT_EQ(handle, first);
  EXPECT_EQ(field::vrf_registrations(), 1U);
  EXPECT_THAT(field::take_traces(),
              ElementsAre("ot_vmap_vrf_add(): VRF red", "ot_vmap_vrf_add(): VRF red"));
}

TEST_F(vrf_registering, is_dropped_with_its_handle) {
  ASSERT_EQ(ot_vmap_vrf_add("red", &handle), 0);
  field::take_traces();
  EXPECT_EQ(ot_vmap_vrf_remove("red", &handle), 0);
  EXPECT_EQ(field::vrf_registrations(), 0U);
  EXPECT_EQ(handle, 0U);
  EXPECT_EQ(ot_vmap_vrf_remove("red", &handle), 0);
  EXPECT_EQ(ot_vmap_vrf_remove(nullptr, &handle), invalid_argument);
  EXPECT_THAT(field::take_traces(),
              ElementsAre("ot_vmap_vrf_remove(): VRF red", "ot_vmap_vrf_remove(): VRF red",
                          "ot_vmap_vrf_remove(): NULL VRF name"));
}

struct failing_add {
  const char* operation;
  const char* traced;
};

TEST_F(vrf_registering, a_failing_step_is_reported_and_returned) {
  for (const failing_add& row : {
           failing_add{"vmap_c_mdb_init", "Could not initialize VMAP registration mdb!"},
           failing_add{"vmap_c_mdb_add_vrf_by_vrf_name",
                       "Could not add for VMAP VRF notifications!"},
           failing_add{"vmap_c_notif_reg", "Could not register for VMAP notifications."},
       }) {
    field::fail_next(row.operation, refused_code);
    EXPECT_EQ(ot_vmap_vrf_add("red", &handle), refused_code);
    EXPECT_EQ(handle, 0U);
    EXPECT_THAT(field::take_traces(), ElementsAre("ot_vmap_vrf_add(): VRF red",
                                                  std::string{"ot_vmap_vrf_add(): "} + row.traced));
  }
}

TEST_F(vrf_registering, a_refusal_of_the_service_is_returned) {
  field::fail_next("vmap_c_notif_reg", 0, refused_code);
  EXPECT_EQ(ot_vmap_vrf_add("red", &handle), refused_code);
  EXPECT_EQ(handle, 0U);
  EXPECT_THAT(field::take_traces(), Contains("ot_vmap_vrf_add(): VMAP returned error"));
}

}  // namespace
}  // namespace ot::test
