// Connections and operational items.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/ledger.h"
#include "platform/ledger_status.h"
#include "tests/contract/ledger_fixture.h"
#include "tests/support/ledger_proposals.h"

namespace ot::test {
namespace {

class ledger_items_contract : public ledger_contract {
 protected:
  void SetUp() override {
    ledger_contract::SetUp();
    ASSERT_EQ(ledger_bind("/oper/gl/object-tracking/", &conn_), 0);
  }
  void TearDown() override { ledger_unbind(conn_); }

  // Operational items are the service's to write, and everybody's to read.
  int put(const char* path, ledger_kind kind, std::span<const std::byte> value) {
    return hosted([&] { return ledger_item_set(conn_, path, kind, value); });
  }
  int put(const char* path, std::uint32_t number) {
    return put(path, ledger_kind::u32, bytes_of_numbers({number}));
  }
  int remove(const char* path) {
    return hosted([&] { return ledger_item_delete(conn_, path); });
  }

  ledger_conn* conn_ = nullptr;
  ledger_value value_;
};

TEST_P(ledger_items_contract, a_set_item_is_read_back) {
  ASSERT_EQ(put("uplink", 2), 0);
  ASSERT_EQ(ledger_item_get(conn_, "uplink", &value_), 0);
  EXPECT_EQ(value_.kind, ledger_kind::u32);
  EXPECT_EQ(value_.as_u32(), 2U);
  ASSERT_EQ(put("uplink", 1), 0);
  ASSERT_EQ(ledger_item_get(conn_, "uplink", &value_), 0);
  EXPECT_EQ(value_.as_u32(), 1U);
}

TEST_P(ledger_items_contract, an_absent_item_is_no_data) {
  value_.kind = ledger_kind::tuple;
  EXPECT_EQ(ledger_item_get(conn_, "nobody", &value_), ledger_no_data);
  EXPECT_EQ(value_.kind, ledger_kind::tuple);
  EXPECT_EQ(remove("nobody"), ledger_no_data);
}

TEST_P(ledger_items_contract, a_deleted_item_is_gone) {
  ASSERT_EQ(put("uplink", 1), 0);
  EXPECT_EQ(remove("uplink"), 0);
  EXPECT_EQ(ledger_item_get(conn_, "uplink", &value_), ledger_no_data);
}

TEST_P(ledger_items_contract, connections_see_the_same_items) {
  ASSERT_EQ(put("uplink", 1), 0);
  ledger_conn* everything = ledger_get_default_conn();
  ASSERT_NE(everything, nullptr);
  EXPECT_EQ(everything, ledger_get_default_conn());
  ASSERT_EQ(ledger_item_get(everything, "oper/gl/object-tracking/uplink", &value_), 0);
  EXPECT_EQ(value_.as_u32(), 1U);
}

TEST_P(ledger_items_contract, texts_and_tuples_keep_their_bytes) {
  ASSERT_EQ(put("t", ledger_kind::text, bytes_of("two words")), 0);
  ASSERT_EQ(ledger_item_get(conn_, "t", &value_), 0);
  EXPECT_EQ(value_.kind, ledger_kind::text);
  EXPECT_EQ(value_.as_text(), "two words");
  EXPECT_EQ(value_.as_u32(), 0U);
  ASSERT_EQ(put("e", ledger_kind::text, {}), 0);
  ASSERT_EQ(ledger_item_get(conn_, "e", &value_), 0);
  EXPECT_EQ(value_.as_text(), "");
}

TEST_P(ledger_items_contract, bad_paths_and_values_are_refused) {
  EXPECT_EQ(put("", 1), ledger_unknown_path);
  EXPECT_EQ(put("a//b", 1), ledger_unknown_path);
  EXPECT_EQ(put("a\nb", 1), ledger_unknown_path);
  EXPECT_EQ(put(std::string(600, 'x').c_str(), 1), ledger_unknown_path);
  EXPECT_EQ(put("n", ledger_kind::u32, bytes_of("abc")), ledger_wrong_kind);
  EXPECT_EQ(put("n", ledger_kind::text, bytes_of(std::string(5000, 'x'))), ledger_wrong_kind);
  EXPECT_EQ(ledger_item_get(conn_, "n", &value_), ledger_no_data);
}

TEST_P(ledger_items_contract, an_operational_item_has_a_limit_of_size) {
  const std::string longest(128 - std::string_view{"/oper/gl/object-tracking/"}.size(), 'x');
  EXPECT_EQ(put(longest.c_str(), 1), 0);
  EXPECT_EQ(put((longest + "x").c_str(), 1), ledger_unknown_path);
  EXPECT_EQ(put("t", ledger_kind::text, bytes_of(std::string(256, 'x'))), 0);
  EXPECT_EQ(put("t", ledger_kind::text, bytes_of(std::string(257, 'x'))), ledger_wrong_kind);
}

TEST_P(ledger_items_contract, configuration_is_not_set_as_an_item) {
  ledger_conn* everything = ledger_get_default_conn();
  ASSERT_NE(everything, nullptr);
  EXPECT_EQ(ledger_item_set(everything, "cfg/gl/x", ledger_kind::u32, bytes_of_numbers({1})),
            invalid_argument);
  EXPECT_EQ(ledger_item_delete(everything, "cfg/gl/x"), invalid_argument);
}

TEST_P(ledger_items_contract, binding_needs_a_base_path) {
  ledger_conn* other = nullptr;
  EXPECT_EQ(ledger_bind("/oper", &other), ledger_unknown_path);
  EXPECT_EQ(ledger_bind("oper/", &other), ledger_unknown_path);
  EXPECT_EQ(ledger_bind(nullptr, &other), ledger_unknown_path);
  EXPECT_EQ(other, nullptr);
}

struct walk_log {
  std::vector<std::string> lines;
  std::size_t stop_after = 10'000;
};

bool note(void* context, std::string_view path, const ledger_value& value) {
  auto& log = *static_cast<walk_log*>(context);
  log.lines.push_back(std::string{path} + "=" + std::to_string(value.as_u32()));
  return log.lines.size() < log.stop_after;
}

TEST_P(ledger_items_contract, a_walk_visits_everything_below_in_path_order) {
  ASSERT_EQ(put("b/2", 22), 0);
  ASSERT_EQ(put("a", 1), 0);
  ASSERT_EQ(put("b/1", 21), 0);
  ASSERT_EQ(put("bc", 3), 0);
  walk_log all;
  ASSERT_EQ(ledger_item_walk(conn_, "", note, &all), 0);
  EXPECT_EQ(all.lines, (std::vector<std::string>{"a=1", "b/1=21", "b/2=22", "bc=3"}));
  walk_log below;
  ASSERT_EQ(ledger_item_walk(conn_, "b", note, &below), 0);
  EXPECT_EQ(below.lines, (std::vector<std::string>{"b/1=21", "b/2=22"}));
  walk_log cut{.lines = {}, .stop_after = 1};
  ASSERT_EQ(ledger_item_walk(conn_, "", note, &cut), 0);
  EXPECT_EQ(cut.lines.size(), 1U);
  walk_log none;
  EXPECT_EQ(ledger_item_walk(conn_, "nothing", note, &none), 0);
  EXPECT_TRUE(none.lines.empty());
}

TEST_P(ledger_items_contract, a_walk_of_many_items_misses_none) {
  for (std::uint32_t i = 0; i < 1500; ++i) {
    ASSERT_EQ(put(("t" + std::to_string(1000 + i)).c_str(), i), 0);
  }
  walk_log all;
  ASSERT_EQ(ledger_item_walk(conn_, "", note, &all), 0);
  ASSERT_EQ(all.lines.size(), 1500U);
  EXPECT_EQ(all.lines.front(), "t1000=0");
  EXPECT_EQ(all.lines.back(), "t2499=1499");
}

bool remove_visited(void* context, std::string_view path, const ledger_value& /*value*/) {
  return ledger_item_delete(static_cast<ledger_conn*>(context), std::string{path}.c_str()) == 0;
}

TEST_P(ledger_items_contract, a_visitor_may_delete_what_it_visits) {
  for (std::uint32_t i = 0; i < 300; ++i) {
    ASSERT_EQ(put(std::to_string(i).c_str(), i), 0);
  }
  ASSERT_EQ(hosted([&] { return ledger_item_walk(conn_, "", remove_visited, conn_); }), 0);
  walk_log rest;
  ASSERT_EQ(ledger_item_walk(conn_, "", note, &rest), 0);
  EXPECT_TRUE(rest.lines.empty());
}

TEST_P(ledger_items_contract, items_outlive_the_service) {
  ASSERT_EQ(put("uplink", 1), 0);
  bed_->restart();
  ASSERT_EQ(ledger_item_get(conn_, "uplink", &value_), 0);
  EXPECT_EQ(value_.as_u32(), 1U);
}

INSTANTIATE_TEST_SUITE_P(ways, ledger_items_contract, ::testing::ValuesIn(ledger_test_bed_ways()),
                         ledger_way_name);

}  // namespace
}  // namespace ot::test
