// Data providers: gets, lists and datalists in pages, and change notifications.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "platform/ledger_datalist.h"
#include "platform/ledger_provider.h"
#include "platform/ledger_status.h"
#include "platform/ledger_subscriber.h"
#include "tests/contract/ledger_fixture.h"
#include "tests/support/ledger_proposals.h"

namespace ot::test {
namespace {

using ::testing::ElementsAre;

// A provider of `count` items "i000", "i001", ... handed out `step` at a time.
struct supply {
  int count = 0;
  int step = 100;
  bool knows_markers = true;
  std::size_t value_length = 4;
  int vanished_markers = 0;  // so many requests with a marker find nothing behind it
} supplied;

std::string item_name(int index) {
  std::string digits = std::to_string(1000 + index);
  digits[0] = 'i';
  return digits;
}

int get_item(ledger_dpv_reply* reply, const ledger_dpv_request* request) {
  if (std::string_view{request->key} != "i001") {
    return ledger_no_data;
  }
  reply->data_kind = 7;
  reply->length = 3;
  reply->buffer = new std::byte[3]{std::byte{1}, std::byte{0}, std::byte{2}};
  return status_ok;
}

int first_after(const char* marker) {
  if (!supplied.knows_markers || *marker == '\0') {
    return 0;
  }
  if (supplied.vanished_markers > 0) {
    --supplied.vanished_markers;
    return supplied.count;
  }
  return std::atoi(marker + 1) + 1;
}

template <typename Request, typename Create, typename Add, typename SetMore>
int answer(Request* request, Create create, Add add, SetMore set_more) {
  const int first = first_after(request->marker);
  if (first >= supplied.count) {
    return ledger_no_data;
  }
  auto* handle = create();
  const int end = std::min(supplied.count, first + supplied.step);
  for (int index = first; index < end; ++index) {
    EXPECT_EQ(add(handle, item_name(index).c_str()), 0);
    ++request->count;
  }
  if (end < supplied.count) {
    EXPECT_EQ(set_more(handle), 0);
  }
  request->handle = handle;
  return status_ok;
}

int list_items(ledger_dpv_list_request* request) {
  return answer(
      request, ledger_dpv_list_create,
      [](ledger_dpv_list* list, const char* name) { return ledger_dpv_list_add(list, name, 7, 0); },
      ledger_dpv_list_set_more_flag);
}

int datalist_items(ledger_dpv_datalist_request* request) {
  return answer(
      request, ledger_dpv_datalist_create,
      [](ledger_dpv_datalist* list, const char* name) {
        const std::vector<std::byte> value(supplied.value_length, std::byte{9});
        return ledger_dpv_datalist_add(list, name, 7, 0, value.data(), value.size());
      },
      ledger_dpv_datalist_set_more_flag);
}

constexpr const char* root = "/oper/sample/gl/";
constexpr ledger_dpv_provider providers[] = {
    {"detail", get_item, list_items, datalist_items},
    {"empty", nullptr, nullptr, nullptr},
    {"whole", get_item, list_items, datalist_items, true},
};

class ledger_provider_contract : public ledger_contract {
 protected:
  void SetUp() override {
    ledger_contract::SetUp();
    supplied = {};
    ASSERT_EQ(hosted([] { return ledger_dpv_register(root, providers); }), 0);
    ASSERT_EQ(ledger_bind(root, &conn_), 0);
  }
  void TearDown() override {
    ledger_datalist_free(page_);
    ledger_unbind(conn_);
  }
  int fetch(const char* marker, std::uint32_t size, const char* branch = "detail") {
    ledger_datalist_free(page_);
    page_ = nullptr;
    return ledger_datalist(conn_, branch, marker, size, &page_);
  }

  ledger_conn* conn_ = nullptr;
  ledger_page* page_ = nullptr;
};

TEST_P(ledger_provider_contract, a_get_is_answered_by_the_provider) {
  ledger_value value;
  ASSERT_EQ(ledger_item_get(conn_, "detail/i001", &value), 0);
  EXPECT_EQ(value.kind, ledger_kind::record);
  EXPECT_THAT(value.bytes(), ElementsAre(std::byte{1}, std::byte{0}, std::byte{2}));
  EXPECT_EQ(ledger_item_get(conn_, "detail/other", &value), ledger_no_data);
  EXPECT_EQ(ledger_item_get(conn_, "empty/i001", &value), ledger_no_data);
  EXPECT_EQ(hosted([&] {
              return ledger_item_set(conn_, "detail/i001", ledger_kind::u32, bytes_of_numbers({1}));
            }),
            ledger_unknown_path);
}

TEST_P(ledger_provider_contract, pages_follow_each_other) {
  supplied.count = 250;
  std::vector<std::size_t> sizes;
  std::string marker;
  for (bool more = true; more; more = page_->has_continuation) {
    ASSERT_EQ(fetch(marker.c_str(), 100), 0);
    sizes.push_back(page_->entries.size());
    marker = page_->continuation;
  }
  EXPECT_THAT(sizes, ElementsAre(100U, 100U, 50U));
  EXPECT_EQ(fetch("i249", 100), ledger_list_end);
}

TEST_P(ledger_provider_contract, a_page_is_walked_once) {
  supplied.count = 2;
  ASSERT_EQ(fetch("", 100), 0);
  EXPECT_FALSE(page_->has_continuation);
  const ledger_entry* entry = ledger_datalist_next(page_);
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->name, "i000");
  EXPECT_EQ(entry->data_kind, 7U);
  EXPECT_EQ(entry->data.size(), 4U);
  ASSERT_NE(ledger_datalist_next(page_), nullptr);
  EXPECT_EQ(ledger_datalist_next(page_), nullptr);
  EXPECT_EQ(ledger_datalist_next(nullptr), nullptr);
}

TEST_P(ledger_provider_contract, a_full_page_at_the_end_has_no_continuation) {
  supplied.count = 100;
  ASSERT_EQ(fetch("", 100), 0);
  EXPECT_EQ(page_->entries.size(), 100U);
  EXPECT_FALSE(page_->has_continuation);
}

TEST_P(ledger_provider_contract, a_provider_without_markers_is_paged_too) {
  supplied = {.count = 250, .step = 1000, .knows_markers = false};
  ASSERT_EQ(fetch("i099", 100, "whole"), 0);
  ASSERT_EQ(page_->entries.size(), 100U);
  EXPECT_EQ(page_->entries.front().name, "i100");
  EXPECT_TRUE(page_->has_continuation);
  ASSERT_EQ(fetch("i199", 100, "whole"), 0);
  EXPECT_EQ(page_->entries.size(), 50U);
  EXPECT_FALSE(page_->has_continuation);
  EXPECT_EQ(fetch("i249", 100, "whole"), ledger_list_end);
}

TEST_P(ledger_provider_contract, a_provider_without_markers_goes_on_behind_one_that_is_gone) {
  supplied = {.count = 250, .step = 1000, .knows_markers = false};
  ASSERT_EQ(fetch("i099-gone", 1000, "whole"), 0);
  EXPECT_EQ(page_->entries.size(), 150U);
  EXPECT_EQ(page_->entries.front().name, "i100");
}

// A page that is put together of several answers.
TEST_P(ledger_provider_contract, a_page_is_read_anew_when_a_marker_within_it_is_gone) {
  supplied = {.count = 250, .step = 30, .vanished_markers = 1};
  ASSERT_EQ(fetch("", 100), 0);
  ASSERT_EQ(page_->entries.size(), 100U);
  EXPECT_EQ(page_->entries.back().name, "i099");
  EXPECT_TRUE(page_->has_continuation);
}

TEST_P(ledger_provider_contract, a_page_that_cannot_be_read_whole_is_not_returned) {
  supplied = {.count = 250, .step = 30, .vanished_markers = 1000};
  EXPECT_EQ(fetch("", 100), ledger_not_available);
}

TEST_P(ledger_provider_contract, nothing_follows_a_marker_that_is_gone) {
  supplied = {.count = 250, .vanished_markers = 1};
  EXPECT_EQ(fetch("i099", 100), ledger_list_end);
}

TEST_P(ledger_provider_contract, long_values_do_not_cut_a_page_short) {
  supplied = {.count = 60, .step = 25, .value_length = 200'000};
  ASSERT_EQ(fetch("", 40), 0);
  EXPECT_EQ(page_->entries.size(), 40U);
  EXPECT_EQ(page_->entries.back().name, "i039");
  EXPECT_EQ(page_->entries.back().data.size(), 200'000U);
  EXPECT_TRUE(page_->has_continuation);
}

TEST_P(ledger_provider_contract, a_list_has_names_only) {
  supplied.count = 3;
  ASSERT_EQ(ledger_list(conn_, "detail", "", 100, &page_), 0);
  ASSERT_EQ(page_->entries.size(), 3U);
  EXPECT_TRUE(page_->entries[0].data.empty());
}

TEST_P(ledger_provider_contract, nothing_to_list_is_said) {
  EXPECT_EQ(fetch("", 100), ledger_no_data);
  EXPECT_EQ(ledger_datalist(conn_, "empty", "", 100, &page_), ledger_no_data);
  EXPECT_EQ(ledger_datalist(conn_, "nowhere", "", 100, &page_), ledger_no_data);
  EXPECT_EQ(ledger_datalist(conn_, "detail", "", 0, &page_), invalid_argument);
  EXPECT_EQ(page_, nullptr);
}

TEST_P(ledger_provider_contract, branches_are_served_once) {
  EXPECT_EQ(hosted([] { return ledger_dpv_register(root, providers); }), duplicate_key);
  EXPECT_EQ(hosted([] { return ledger_dpv_register("/oper", providers); }), invalid_argument);
}

INSTANTIATE_TEST_SUITE_P(ways, ledger_provider_contract,
                         ::testing::ValuesIn(ledger_test_bed_ways()), ledger_way_name);

TEST(ledger_dpv_lists_contract, null_lists_are_refused) {
  EXPECT_EQ(ledger_dpv_list_add(nullptr, "x", 7, 0), invalid_argument);
  EXPECT_EQ(ledger_dpv_datalist_set_more_flag(nullptr), invalid_argument);
  ledger_dpv_list_free(nullptr);
  ledger_dpv_datalist_free(nullptr);
}

}  // namespace
}  // namespace ot::test
