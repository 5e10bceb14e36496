// The history as a client of the ledger reads it: in pages, from any number on.
#include "oper/records/history.h"

#include <memory>

#include "core/wall_clock.h"
#include "platform/ledger_datalist.h"
#include "platform/ledger_status.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "state/history.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

constexpr const char* path = "oper/object_tracking/gl/history";

using page_owner = std::unique_ptr<ledger_page, decltype(&ledger_datalist_free)>;

class history_data : public running_service {
 protected:
  page_owner page_behind(const std::string& marker, std::uint32_t size = history_page) {
    ledger_page* page = nullptr;
    status = ledger_datalist(ledger_get_default_conn(), path, marker.c_str(), size, &page);
    return page_owner(page, ledger_datalist_free);
  }
  static history_change__ decoded(const ledger_entry& entry) {
    history_change__ record;
    EXPECT_EQ(entry.data_kind, 7U);
    EXPECT_EQ(brec_decode(history_change___brec, entry.data, &record), 0);
    return record;
  }
  static void note(std::uint64_t count) {
    const track_name name{"a-track-whose-name-has-39-characters-ok"};
    for (std::uint64_t change = 0; change < count; ++change) {
      note_state_change(name, track_state::up, track_state::down, 100'123);
    }
  }
  static history_info__ extent() {
    ledger_value value;
    EXPECT_EQ(ledger_item_get(ledger_get_default_conn(), "oper/object_tracking/gl/history/extent",
                              &value),
              0);
    history_info__ record;
    EXPECT_EQ(brec_decode(history_info___brec, value.bytes(), &record), 0);
    return record;
  }

  int status = 0;
};

TEST_F(history_data, an_empty_one_has_no_items_and_says_since_when) {
  (void)page_behind("");
  EXPECT_EQ(status, ledger_no_data);
  const history_info__ kept = extent();
  EXPECT_EQ(kept.Since, static_cast<std::uint64_t>(wall_clock_at(state_history().since_ms)));
  EXPECT_EQ(kept.First, 1U);
  EXPECT_EQ(kept.Last, 0U);
}

TEST_F(history_data, an_item_is_the_whole_change) {
  const change_cause_scope cause(change_cause::list);
  note(1);
  const page_owner page = page_behind("");
  ASSERT_EQ(status, 0);
  ASSERT_EQ(page->entries.size(), 1U);
  EXPECT_EQ(page->entries[0].name, "1");
  const history_change__ change = decoded(page->entries[0]);
  EXPECT_EQ(change.Number, 1U);
  EXPECT_EQ(change.When, 1'700'000'000'123U);
  EXPECT_EQ(change.TrackName.view(), "a-track-whose-name-has-39-characters-ok");
  EXPECT_EQ(change.From, 1U);
  EXPECT_EQ(change.To, 2U);
  EXPECT_EQ(change.Cause, static_cast<std::uint32_t>(change_cause::list));
}

TEST_F(history_data, comes_in_pages_that_miss_and_repeat_nothing_while_it_grows) {
  note(600);
  std::vector<std::size_t> sizes;
  std::uint64_t next = 1;
  std::string marker;
  bool more = true;
  while (more) {
    const page_owner page = page_behind(marker);
    ASSERT_EQ(status, 0);
    sizes.push_back(page->entries.size());
    for (const ledger_entry& entry : page->entries) {
      ASSERT_EQ(decoded(entry).Number, next++);
    }
    more = page->has_continuation;
    marker = page->continuation;
    note(more ? 1 : 0);
  }
  EXPECT_THAT(sizes, testing::ElementsAre(256, 256, 90));
  EXPECT_EQ(extent().Last, 602U);
}

TEST_F(history_data, an_answer_has_at_most_256_changes_whatever_is_asked_for) {
  note(600);
  ledger_dpv_datalist_request request;
  EXPECT_EQ(ot_history_datalist(&request), 0);
  EXPECT_EQ(request.count, 256U);
  ledger_dpv_datalist_free(request.handle);
}

TEST_F(history_data, a_reader_goes_on_where_it_was) {
  note(10);
  (void)page_behind("10");
  EXPECT_EQ(status, ledger_list_end);
  note(1);
  const page_owner page = page_behind("10");
  ASSERT_EQ(status, 0);
  ASSERT_EQ(page->entries.size(), 1U);
  EXPECT_EQ(decoded(page->entries[0]).Number, 11U);
  EXPECT_FALSE(page->has_continuation);
}

TEST_F(history_data, a_reader_that_was_away_too_long_gets_what_is_left) {
  note(history_size + 100);
  const page_owner page = page_behind("7");
  ASSERT_EQ(status, 0);
  EXPECT_EQ(decoded(page->entries[0]).Number, 101U);
}

TEST_F(history_data, nothing_follows_what_is_no_number) {
  note(3);
  for (const char* marker : {"x", "1x", "-1", "99999999999999999999999"}) {
    (void)page_behind(marker);
    EXPECT_EQ(status, ledger_list_end) << marker;
  }
}

TEST_F(history_data, without_memory_there_is_no_page) {
  note(3);
  ledger_dpv_datalist_request request;
  int result = 0;
  const std::uint64_t hits = for_each_failing_allocation(
      [&] {
        request = {};
        result = ot_history_datalist(&request);
      },
      [&](std::uint64_t allocation, bool hit) {
        EXPECT_EQ(result, hit ? ledger_provider_failure : 0) << allocation;
        EXPECT_EQ(request.handle == nullptr, hit) << allocation;
        ledger_dpv_datalist_free(request.handle);
      });
  EXPECT_GT(hits, 3U);
}

}  // namespace
}  // namespace ot::test
