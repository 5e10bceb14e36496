// The probe statistics table: what the writer publishes is what a reader finds, in whatever order
// operations come and go, and a writer that is no longer there is noticed.
#include <array>
#include <fstream>
#include <map>
#include <random>
#include <span>
#include <vector>

#include "platform/linux/monotonic.h"
#include "tests/qmond/table_fixture.h"

namespace ot::qmond {
namespace {

TEST_F(qmond_table, a_reader_finds_what_was_published) {
  table_writer writer(path_, 4);
  const std::uint32_t slot = writer.add(4000000000U, describe("icmp 192.0.2.1", 1000, 500)).value();
  writer.publish(slot, result(2, 17));
  writer.install();
  table_view view;
  ASSERT_EQ(view.open(path_), 0);
  statistics found;
  ASSERT_TRUE(view.look_up(4000000000U, &found));
  EXPECT_EQ(found[word_op_id], 4000000000U);
  EXPECT_EQ(found[word_return_code], 2U);
  EXPECT_EQ(found[word_response_time], 17U);
  EXPECT_FALSE(view.look_up(4000000001U, &found));
  EXPECT_FALSE(view.look_up(0, &found));
}

TEST_F(qmond_table, a_new_operation_has_no_result_yet) {
  table_writer writer(path_, 1);
  writer.add(7, describe("icmp 192.0.2.1", 1000, 500));
  writer.install();
  table_view view;
  ASSERT_EQ(view.open(path_), 0);
  statistics found;
  ASSERT_TRUE(view.look_up(7, &found));
  EXPECT_EQ(found[word_return_code], 0U);
}

TEST_F(qmond_table, descriptions_are_kept_and_long_ones_cut) {
  table_writer writer(path_, 1);
  const std::string text = "http https://" + std::string(300, 'x');
  const std::uint32_t slot = writer.add(1, describe(text, 2500, 700)).value();
  writer.install();
  table_view view;
  ASSERT_EQ(view.open(path_), 0);
  statistics found;
  description about;
  ASSERT_TRUE(view.slot(slot, &found, &about));
  EXPECT_EQ(description_text(about), text.substr(0, description_text_size - 1));
  EXPECT_EQ(about[word_interval_ms], 2500U);
  EXPECT_EQ(about[word_timeout_ms], 700U);
}

// Ids whose searches begin close together.
std::vector<std::uint32_t> neighbours(std::size_t count, std::uint32_t slots, std::uint32_t homes) {
  std::vector<std::uint32_t> ids;
  for (std::uint32_t id = 0; ids.size() < count; ++id) {
    if (home_slot(id, 0, slots) < homes) {
      ids.push_back(id);
    }
  }
  return ids;
}

// In a table that is as full as it may be.
TEST_F(qmond_table, operations_come_and_go_in_any_order) {
  table_writer writer(path_, 32);
  writer.install();
  table_view view;
  ASSERT_EQ(view.open(path_), 0);
  std::mt19937 random(1);
  const std::vector<std::uint32_t> ids = neighbours(128, view.slots(), 8);
  const auto some_id = [&] { return ids[random() % ids.size()]; };
  std::map<std::uint32_t, std::uint32_t> slots;
  for (int step = 0; step < 20000; ++step) {
    const std::uint32_t id = some_id();
    if (const auto known = slots.find(id); known != slots.end()) {
      writer.remove(known->second);
      slots.erase(known);
    } else if (slots.size() < writer.capacity()) {
      slots[id] = writer.add(id, {}).value();
      writer.publish(slots[id], result(1, id));
    }
    const std::uint32_t asked = some_id();
    statistics found;
    ASSERT_EQ(view.look_up(asked, &found), slots.contains(asked)) << "step " << step;
    ASSERT_TRUE(!slots.contains(asked) || found[word_response_time] == asked) << "step " << step;
  }
}

TEST_F(qmond_table, takes_as_many_operations_as_promised) {
  table_writer writer(path_, operations_max);
  ASSERT_EQ(writer.capacity(), operations_max);
  for (std::uint32_t id = 0; id < operations_max; ++id) {
    writer.publish(writer.add(id * 3, {}).value(), result(1, id));
  }
  writer.install();
  table_view view;
  ASSERT_EQ(view.open(path_), 0);
  statistics found;
  for (std::uint32_t id = 0; id < operations_max; ++id) {
    ASSERT_TRUE(view.look_up(id * 3, &found));
    ASSERT_EQ(found[word_response_time], id);
  }
  EXPECT_FALSE(view.look_up(1, &found));
}

TEST_F(qmond_table, an_operation_that_would_be_searched_for_too_long_gets_no_slot) {
  const std::uint32_t count = search_max + 1;
  table_writer writer(path_, count);
  writer.install();
  table_view view;
  ASSERT_EQ(view.open(path_), 0);
  const std::vector<std::uint32_t> ids = neighbours(count, view.slots(), 1);
  statistics found;
  for (const std::uint32_t id : std::span(ids).first(search_max)) {
    ASSERT_TRUE(writer.add(id, {})) << id;
    ASSERT_TRUE(view.look_up(id, &found)) << id;
  }
  EXPECT_EQ(writer.add(ids.back(), {}), std::nullopt);
  EXPECT_FALSE(view.look_up(ids.back(), &found));
  table_writer other(path_, count, 1);
  for (const std::uint32_t id : ids) {
    EXPECT_TRUE(other.add(id, {})) << id;
  }
}

TEST_F(qmond_table, a_damaged_operation_hides_no_other_one) {
  table_writer writer(path_, 4);
  writer.install();
  table_view view;
  ASSERT_EQ(view.open(path_), 0);
  const std::vector<std::uint32_t> ids = neighbours(3, view.slots(), 1);
  std::vector<std::uint32_t> slots;
  for (const std::uint32_t id : ids) {
    slots.push_back(writer.add(id, {}).value());
    writer.publish(slots.back(), result(1, id));
  }
  std::array<char, sizeof(statistics_cell)> garbage{};
  garbage.fill('\x5a');
  overwrite(statistics_offset(slots[0]), garbage);
  statistics found;
  EXPECT_FALSE(view.look_up(ids[0], &found));
  for (const std::size_t intact : {1U, 2U}) {
    ASSERT_TRUE(view.look_up(ids[intact], &found));
    EXPECT_EQ(found[word_response_time], ids[intact]);
  }
}

// The writer believes its own notes, not the file.
TEST_F(qmond_table, a_writer_repairs_with_each_publication_what_others_wrote) {
  table_writer writer(path_, 4);
  const std::uint32_t slot = writer.add(9, {}).value();
  writer.install();
  std::array<char, sizeof(statistics_cell)> garbage{};
  garbage.fill('\x5a');
  for (std::uint32_t i = 0; i < 64; ++i) {
    overwrite(statistics_offset() + i * sizeof garbage, garbage);
  }
  table_view view;
  ASSERT_EQ(view.open(path_), 0);
  statistics found;
  EXPECT_FALSE(view.look_up(9, &found));
  writer.publish(slot, result(1, 5));
  ASSERT_TRUE(view.look_up(9, &found));
  EXPECT_EQ(found[word_response_time], 5U);
  const std::uint32_t other = writer.add(10, {}).value();
  EXPECT_NE(other, slot);
  EXPECT_TRUE(view.look_up(10, &found));
}

TEST_F(qmond_table, is_alive_as_long_as_its_heart_beats) {
  table_view view;
  {
    table_writer writer(path_, 1);
    writer.install();
    ASSERT_EQ(view.open(path_), 0);
    EXPECT_TRUE(view.live());
    set_heartbeat(monotonic_ms() - heartbeat_max_age_ms + 1000);
    EXPECT_TRUE(view.live());
    set_heartbeat(monotonic_ms() - heartbeat_max_age_ms);
    EXPECT_FALSE(view.live());
    writer.beat();
    EXPECT_TRUE(view.live());
  }
  EXPECT_FALSE(view.live()) << "the writer ended in order";
}

TEST_F(qmond_table, a_heartbeat_from_the_future_is_not_believed) {
  table_writer writer(path_, 1);
  writer.install();
  table_view view;
  ASSERT_EQ(view.open(path_), 0);
  for (const std::uint64_t ahead : {std::uint64_t{60000}, std::uint64_t{1} << 40}) {
    set_heartbeat(monotonic_ms() + ahead);
    EXPECT_FALSE(view.live()) << ahead;
  }
  set_heartbeat(UINT64_MAX);
  EXPECT_FALSE(view.live());
  set_heartbeat(UINT64_MAX - heartbeat_max_age_ms + 1);
  EXPECT_FALSE(view.live()) << "also where a sum would wrap";
}

TEST(qmond_heartbeat, counts_within_its_bounds_on_both_sides) {
  EXPECT_TRUE(heartbeat_counts(10000, 10000));
  EXPECT_TRUE(heartbeat_counts(10000, 10000 + heartbeat_max_age_ms - 1));
  EXPECT_FALSE(heartbeat_counts(10000, 10000 + heartbeat_max_age_ms));
  EXPECT_FALSE(heartbeat_counts(10001, 10000));
  EXPECT_FALSE(heartbeat_counts(UINT64_MAX, 10000));
  EXPECT_TRUE(heartbeat_counts(0, 1));
}

TEST_F(qmond_table, a_new_table_takes_the_place_of_the_old_one) {
  table_writer old(path_, 1);
  old.install();
  table_view view;
  ASSERT_EQ(view.open(path_), 0);
  table_writer fresh(path_, 1);
  EXPECT_TRUE(view.live()) << "not before the new one can be read";
  fresh.publish(fresh.add(5, {}).value(), result(1, 3));
  fresh.install();
  EXPECT_FALSE(view.live());
  ASSERT_EQ(view.open(path_), 0);
  statistics found;
  EXPECT_TRUE(view.live());
  EXPECT_TRUE(view.look_up(5, &found));
}

TEST_F(qmond_table, what_is_no_table_is_refused) {
  table_view view;
  EXPECT_EQ(view.open(path_), ENOENT);
  EXPECT_EQ(view.open(folder_), EPROTO);
  std::ofstream(path_) << "short";
  EXPECT_EQ(view.open(path_), EPROTO);
  std::ofstream(path_) << std::string(100000, 'x');
  EXPECT_EQ(view.open(path_), EPROTO);
  EXPECT_FALSE(view.is_open());
}

// One field of a good header made wrong.
class qmond_broken_header : public qmond_table,
                            public testing::WithParamInterface<std::pair<int, std::uint32_t>> {};

TEST_P(qmond_broken_header, is_refused_and_the_open_table_kept) {
  table_writer writer(path_, 1);
  writer.install();
  table_view view;
  ASSERT_EQ(view.open(path_), 0);
  const auto [offset, value] = GetParam();
  overwrite(static_cast<std::size_t>(offset), value);
  EXPECT_EQ(view.open(path_), EPROTO);
  EXPECT_TRUE(view.is_open());
}

INSTANTIATE_TEST_SUITE_P(fields, qmond_broken_header,
                         testing::Values(std::pair{0, 1U}, std::pair{4, table_version + 1},
                                         std::pair{8, 0U}, std::pair{8, 3U}, std::pair{8, 128U},
                                         std::pair{8, 4 * slots_max}));

}  // namespace
}  // namespace ot::qmond
