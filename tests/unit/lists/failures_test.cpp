// What the configuration of lists says when it fails: without memory, and at a teardown.
#include "config/lifecycle.h"
#include "core/debug.h"
#include "lists/boolean_list.h"
#include "lists/threshold_list.h"
#include "platform/ledger_status.h"
#include "platform/memory/alloc_faults.h"
#include "tests/unit/lists/fixture.h"

namespace ot::test {
namespace {

using testing::ElementsAre;

constexpr std::uint32_t on_create = ledger_event_create;
constexpr std::uint32_t on_set = ledger_event_set;

class list_failures : public list_fixture {
 protected:
  // The errors of an operation whose k-th allocation fails; it returns 12.
  template <typename Operation>
  text_lines errors_without_memory(std::uint64_t k, Operation&& operation) {
    ot_debug[ot_debug_error].enabled = 1;
    field::take_traces();
    {
      alloc_faults faults{k};
      EXPECT_EQ(operation(), no_memory) << k;
    }
    ot_debug[ot_debug_error].enabled = 0;
    return field::take_traces();
  }
};

TEST_F(list_failures, are_traced_of_a_boolean_list_without_memory) {
  const std::string make = "(object_tracking_type_bool_create) : ";
  const std::string failed =
      "(object_tracking_type_bool_object_apply) : object_tracking_type_bool_create failed - "
      "Cannot "
      "allocate memory";
  direct_change create(on_create, "l", 3, "a", 1);
  const auto apply = [&] { return object_tracking_type_bool_object_apply(create.get()); };
  EXPECT_THAT(errors_without_memory(0, apply), ElementsAre(make + "malloc() failed.", failed));
  EXPECT_THAT(errors_without_memory(2, apply),
              ElementsAre("(object_tracking_add_object_to_track) : Memory allocation failed.",
                          make + "object_tracking_add_object_to_track failed - no memory to add "
                                 "item ",
                          failed));
  EXPECT_THAT(errors_without_memory(3, apply),
              ElementsAre(make + "hash_db_add_new_item failed- no memory to add item ", failed));
  ASSERT_EQ(tracks_table_create(), 0);
  ASSERT_EQ(apply(), 0);
  direct_change change(on_set, "l", 3, "a", 0);
  change.from(1);
  EXPECT_THAT(errors_without_memory(
                  0, [&] { return object_tracking_type_bool_object_apply(change.get()); }),
              ElementsAre("(object_tracking_add_object_to_track) : Memory allocation failed.",
                          make + "object_tracking_add_object_to_track failed - no memory to add "
                                 "item ",
                          failed));
}

TEST_F(list_failures, are_traced_of_a_threshold_list_without_memory) {
  const std::string make = "(ot_thld_create_track) : ";
  const std::string failed =
      "(object_tracking_type_threshold_object_apply) : Track creation failed. err:";
  direct_change create(on_create, "l", 7, "a", 5);
  const auto apply = [&] { return object_tracking_type_threshold_object_apply(create.get()); };
  EXPECT_THAT(errors_without_memory(0, apply), ElementsAre(make + "malloc() failed.", failed));
  EXPECT_THAT(
      errors_without_memory(2, apply),
      ElementsAre("(ot_thld_add_obj_to_track) : Memory allocation failed.",
                  make + "ot_thld_add_obj_to_track failed - no memory to add item ", failed));
  EXPECT_THAT(errors_without_memory(3, apply),
              ElementsAre(make + "hash_db_add_new_item failed- no memory to add item ", failed));
  ASSERT_EQ(tracks_table_create(), 0);
  ASSERT_EQ(apply(), 0);
  direct_change change(on_set, "l", 7, "a", 6);
  change.from(5);
  EXPECT_THAT(errors_without_memory(
                  0, [&] { return object_tracking_type_threshold_object_apply(change.get()); }),
              ElementsAre("(ot_thld_add_obj_to_track) : Memory allocation failed.",
                          make + "ot_thld_add_obj_to_track failed - no memory to add item ",
                          "(object_tracking_type_threshold_object_apply) : Error creating track. "
                          "err:Cannot allocate memory"));
}

TEST_F(list_failures, are_traced_of_limits_without_memory) {
  for (const std::uint32_t event : {on_create, on_set}) {
    direct_change change(event, "l", 7, nullptr, 5, 10);
    EXPECT_THAT(
        errors_without_memory(
            0, [&] { return object_tracking_type_threshold_object_crt_apply(change.get()); }),
        ElementsAre("(ot_thld_create_track) : malloc() failed.",
                    "(object_tracking_type_threshold_object_crt_apply) : Track creation failed. "
                    "err:"));
  }
}

TEST_F(list_failures, are_traced_of_a_teardown_that_fails) {
  object("a", true);
  limits("w", 7, "0x5", 1);
  limits("p", 8, "0x64", 1);
  const struct {
    const char* name;
    int type;
    const char* failed;
  } rows[] = {
      {"and", 3, " : object_tracking_delete_track_bool_objects failed - The ledger is full"},
      {"or", 4, " : object_tracking_delete_track_bool_objects failed - The ledger is full"},
      {"w", 7, " : Delete object from track: failed - The ledger is full"},
      {"p", 8, " : Delete object from track: failed - The ledger is full"},
  };
  for (const auto& row : rows) {
    list(row.name, row.type, {{"a", row.type < 7 ? 0U : 2U}});
    ASSERT_EQ(state(row.name), track_state::up) << row.name;
    ledger_control_fail_next(ledger_operation::set, ledger_full);
    ot_debug[ot_debug_error].enabled = 1;
    field::take_traces();
    EXPECT_EQ(object_tracking_track_delete(row.name), ledger_full) << row.name;
    EXPECT_THAT(field::take_traces(),
                ElementsAre(std::string{"(object_tracking_track_delete)"} + row.failed));
    ot_debug[ot_debug_error].enabled = 0;
    EXPECT_NE(track(row.name).object.list.members, nullptr) << row.name;
    EXPECT_EQ(source(row.name), track_state::unknown) << row.name;
  }
}

}  // namespace
}  // namespace ot::test
