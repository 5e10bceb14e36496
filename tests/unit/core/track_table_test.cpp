// The track record and its table.
#include <gtest/gtest.h>

#include <cstring>

#include "core/debug.h"
#include "core/track.h"
#include "platform/memory/controls.h"

namespace ot {
namespace {

class track_table : public testing::Test {
 protected:
  void SetUp() override {
    field::reset();
    ASSERT_EQ(tracks_table_create(), 0);
  }
  void TearDown() override { hash_db_destroy(tracks_table); }

  static int add(const std::string& name) {
    ot_track record;
    record.name.assign(name);
    return hash_db_add_new_item(tracks_table, name.c_str(), &record);
  }
};

TEST_F(track_table, finds_a_track_by_its_name) {
  ASSERT_EQ(add("uplink"), 0);
  ot_track* found = hash_db_get_track_item("uplink");
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->name, "uplink");
  EXPECT_EQ(hash_db_get_track_item("downlink"), nullptr);
}

TEST_F(track_table, the_record_begins_48_bytes_into_its_entry) {
  ASSERT_EQ(add("uplink"), 0);
  EXPECT_EQ(tracks_table.key_size, 40);
  EXPECT_EQ(tracks_table.data_size, sizeof(ot_track));
  const auto* entry = reinterpret_cast<const std::byte*>(hash_db_find(tracks_table, "uplink"));
  EXPECT_EQ(reinterpret_cast<const std::byte*>(hash_db_get_track_item("uplink")), entry + 48);
}

TEST_F(track_table, the_lookup_is_traced_only_while_detail_traces_are_on) {
  hash_db_get_track_item("uplink");
  EXPECT_TRUE(field::take_traces().empty());
  ot_debug[ot_debug_detail].enabled = 1;
  hash_db_get_track_item("uplink");
  ot_debug[ot_debug_detail].enabled = 0;
  EXPECT_EQ(field::take_traces(), std::vector<std::string>{"Entering (hash_db_get_track_item) : "});
}

TEST_F(track_table, holds_all_1500_tracks) {
  for (std::uint32_t i = 0; i < max_tracks; ++i) {
    ASSERT_EQ(add("track" + std::to_string(i)), 0);
  }
  EXPECT_EQ(max_tracks, 1500U);
  EXPECT_EQ(hash_db_count(tracks_table), 1500U);
  for (std::uint32_t i = 0; i < max_tracks; ++i) {
    ASSERT_NE(hash_db_get_track_item(("track" + std::to_string(i)).c_str()), nullptr);
  }
}

TEST(track_record, is_without_type_state_and_object_at_first) {
  const ot_track record;
  EXPECT_TRUE(record.name.empty());
  EXPECT_EQ(record.type, track_type::none);
  EXPECT_EQ(record.configured_type, 0U);
  EXPECT_EQ(record.state, track_state::unknown);
  EXPECT_EQ(record.source_state, track_state::unknown);
  EXPECT_EQ(record.delay_up, 0);
  EXPECT_EQ(record.delay_down, 0);
  EXPECT_EQ(record.state_change_counter, 0U);
  const track_object empty;
  EXPECT_EQ(std::memcmp(&record.object, &empty, sizeof empty), 0);
  EXPECT_EQ(record.object.list.members, nullptr);
}

TEST(track_record, the_type_codes_are_those_of_paths_and_records) {
  EXPECT_EQ(static_cast<int>(track_type::interface), 1);
  EXPECT_EQ(static_cast<int>(track_type::route), 2);
  EXPECT_EQ(static_cast<int>(track_type::boolean_and), 3);
  EXPECT_EQ(static_cast<int>(track_type::boolean_or), 4);
  EXPECT_EQ(static_cast<int>(track_type::probe), 5);
  EXPECT_EQ(static_cast<int>(track_type::none), 6);
  EXPECT_EQ(static_cast<int>(track_type::threshold_weight), 7);
  EXPECT_EQ(static_cast<int>(track_type::threshold_percentage), 8);
  EXPECT_EQ(static_cast<int>(track_type::bfd), 9);
}

TEST(track_record, four_types_are_lists) {
  for (int code = 0; code < 12; ++code) {
    const bool list = code == 3 || code == 4 || code == 7 || code == 8;
    EXPECT_EQ(is_list_type(static_cast<track_type>(code)), list) << code;
  }
}

TEST(track_record, states_have_texts) {
  EXPECT_STREQ(track_state_text(track_state::unknown), "Unknown");
  EXPECT_STREQ(track_state_text(track_state::up), "Track_Up");
  EXPECT_STREQ(track_state_text(track_state::down), "Track_Down");
  EXPECT_STREQ(track_state_text(static_cast<track_state>(3)), "");
  EXPECT_STREQ(track_state_text(static_cast<track_state>(0xffffffff)), "");
}

TEST(track_record, a_name_has_39_characters) {
  const track_name name{std::string(60, 'n')};
  EXPECT_EQ(name.view(), std::string(39, 'n'));
}

}  // namespace
}  // namespace ot
