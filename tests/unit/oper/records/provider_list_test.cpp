// Listing all tracks: names or records, the detailed branch in pages.
#include <memory>

#include "config/lifecycle.h"
#include "oper/records/provider.h"
#include "platform/err_string.h"
#include "platform/ledger_datalist.h"
#include "platform/ledger_status.h"
#include "tests/unit/oper/records/tracks.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::SizeIs;
using testing::UnorderedElementsAre;

constexpr const char* detail_path = "oper/object_tracking/gl/track/detail";
constexpr const char* brief_path = "oper/object_tracking/gl/track/brief";

using page_owner = std::unique_ptr<ledger_page, decltype(&ledger_datalist_free)>;

class provider_list : public record_tracks {
 protected:
  void add_many(int count) {
    for (int index = 0; index < count; ++index) {
      add_interface("t" + std::to_string(index), "eth" + std::to_string(index));
    }
  }

  page_owner page_of(const char* path, const std::string& marker, std::uint32_t size = 100) {
    ledger_page* page = nullptr;
    status = ledger_datalist(ledger_get_default_conn(), path, marker.c_str(), size, &page);
    return page_owner(page, ledger_datalist_free);
  }

  static lines names(const ledger_page& page) {
    lines result;
    for (const ledger_entry& entry : page.entries) result.push_back(entry.name);
    return result;
  }

  // What a provider handed over, as the ledger would take it.
  struct handed_over {
    int status;
    std::uint32_t count;
    bool has_handle;
  };
  template <typename Request, typename Handle>
  static handed_over ask(int (*operation)(Request*), void (*release)(Handle*) noexcept,
                         const char* marker) {
    Request request{.marker = marker, .count = 99, .handle = nullptr};
    const int result = operation(&request);
    release(request.handle);
    return {result, request.count, request.handle != nullptr};
  }
  static handed_over datalist(const char* marker) {
    return ask(ot_track_datalist, ledger_dpv_datalist_free, marker);
  }
};

TEST_F(provider_list, the_detailed_branch_comes_in_pages_of_100) {
  add_many(250);
  lines seen;
  std::vector<std::size_t> sizes;
  std::vector<bool> more;
  std::string marker;
  do {
    const page_owner page = page_of(detail_path, marker);
    ASSERT_EQ(status, 0);
    sizes.push_back(page->entries.size());
    more.push_back(page->has_continuation);
    const lines some = names(*page);
    seen.insert(seen.end(), some.begin(), some.end());
    marker = page->continuation;
  } while (more.back());
  EXPECT_THAT(sizes, ElementsAre(100, 100, 50));
  EXPECT_THAT(more, ElementsAre(true, true, false));
  std::sort(seen.begin(), seen.end());
  EXPECT_EQ(std::unique(seen.begin(), seen.end()), seen.end());
  EXPECT_THAT(seen, SizeIs(250));
}

TEST_F(provider_list, a_full_last_page_has_no_more_behind_it) {
  add_many(100);
  EXPECT_EQ(datalist("").count, 100U);
  const page_owner page = page_of(detail_path, "");
  EXPECT_THAT(page->entries, SizeIs(100));
  EXPECT_FALSE(page->has_continuation);
}

TEST_F(provider_list, an_answer_of_the_detailed_branch_has_at_most_100_records) {
  add_many(101);
  EXPECT_EQ(datalist("").count, 100U);
  EXPECT_EQ(ask(ot_track_list, ledger_dpv_list_free, "").count, 100U);
}

TEST_F(provider_list, an_entry_is_the_record_of_its_track_alone) {
  add_interface("a", "eth0");
  add_interface("b", "eth1");
  const page_owner page = page_of(detail_path, "");
  ASSERT_THAT(page->entries, SizeIs(2));
  for (const ledger_entry& entry : page->entries) {
    EXPECT_EQ(entry.data_kind, 7U);
    const owned_record<track_info__> record(track_info___brec);
    ASSERT_EQ(brec_decode(track_info___brec, entry.data, record.get()), 0);
    EXPECT_THAT(names_of(*record), ElementsAre(entry.name));
  }
  const page_owner table = page_of(brief_path, "");
  const owned_record<track_info_brief__> record(track_info_brief___brec);
  ASSERT_EQ(brec_decode(track_info_brief___brec, table->entries[0].data, record.get()), 0);
  EXPECT_THAT(names_of(*record), ElementsAre(table->entries[0].name));
}

TEST_F(provider_list, a_list_has_names_only) {
  add_interface("a", "eth0");
  add_interface("b", "eth1");
  for (const char* path : {detail_path, brief_path}) {
    ledger_page* page = nullptr;
    ASSERT_EQ(ledger_list(ledger_get_default_conn(), path, "", 100, &page), 0);
    const page_owner owner(page, ledger_datalist_free);
    EXPECT_THAT(names(*page), UnorderedElementsAre("a", "b"));
    EXPECT_TRUE(page->entries[0].data.empty());
  }
}

TEST_F(provider_list, the_brief_branch_has_no_pages_of_its_own) {
  add_many(250);
  const handed_over all = ask(ot_track_brief_datalist, ledger_dpv_datalist_free, "");
  EXPECT_EQ(all.status, 0);
  EXPECT_EQ(all.count, 250U);
  EXPECT_EQ(ask(ot_track_brief_list, ledger_dpv_list_free, "").count, 250U);
  EXPECT_FALSE(page_of(brief_path, "", 1000)->has_continuation);
}

// What does not fit one page goes by name, so that a track that is gone can still be a marker.
TEST_F(provider_list, the_brief_branch_goes_on_behind_a_marker_that_is_gone) {
  add_many(250);
  lines seen;
  std::string marker;
  for (bool more = true; more;) {
    const page_owner page = page_of(brief_path, marker);
    ASSERT_EQ(status, 0);
    const lines some = names(*page);
    seen.insert(seen.end(), some.begin(), some.end());
    more = page->has_continuation;
    marker = page->continuation;
    if (more) {
      ASSERT_EQ(object_tracking_track_delete(marker.c_str()), 0);
    }
  }
  EXPECT_THAT(seen, SizeIs(250));
  std::sort(seen.begin(), seen.end());
  EXPECT_EQ(std::unique(seen.begin(), seen.end()), seen.end()) << "nothing is repeated";
}

TEST_F(provider_list, the_brief_branch_on_one_page_keeps_the_order_of_the_table) {
  add_many(20);
  lines table;
  for (auto* track = hash_db_first_data<ot_track>(tracks_table); track != nullptr;
       track = hash_db_next_data<ot_track>(tracks_table)) {
    table.emplace_back(track->name.c_str());
  }
  EXPECT_EQ(names(*page_of(brief_path, "")), table);
}

TEST_F(provider_list, without_tracks_there_is_no_data) {
  page_of(detail_path, "");
  EXPECT_EQ(status, ledger_no_data);
  page_of(brief_path, "");
  EXPECT_EQ(status, ledger_no_data);
  EXPECT_EQ(ask(ot_track_list, ledger_dpv_list_free, "").status, ledger_no_data);
}

TEST_F(provider_list, a_marker_that_names_no_track_ends_the_listing) {
  add_many(3);
  EXPECT_EQ(datalist("gone").status, ledger_no_data);
  // Names are compared to the letter here.
  EXPECT_EQ(datalist("T0").status, ledger_no_data);
  page_of(detail_path, "gone");
  EXPECT_EQ(status, ledger_list_end);
}

TEST_F(provider_list, the_last_track_as_marker_ends_the_listing) {
  add_interface("only", "eth0");
  EXPECT_EQ(datalist("only").status, ledger_no_data);
}

// Items go by the whole name of a track, so that a long one works as a marker too.
TEST_F(provider_list, pages_go_on_behind_names_longer_than_a_record_holds) {
  const std::string stem(33, 'n');
  for (int index = 0; index < 130; ++index) {
    add_interface(stem + std::to_string(index), "eth0");
  }
  const page_owner first = page_of(detail_path, "");
  ASSERT_TRUE(first->has_continuation);
  EXPECT_GT(first->continuation.size(), 33U);
  EXPECT_THAT(page_of(detail_path, first->continuation)->entries, SizeIs(30));
}

TEST_F(provider_list, needs_a_request) {
  add_many(1);
  EXPECT_EQ(ot_track_list_datalist(nullptr, nullptr), ledger_provider_failure);
  EXPECT_EQ(static_cast<std::uint32_t>(ledger_provider_failure), 0x40829000U);
}

TEST_F(provider_list, an_item_that_cannot_be_added_is_reported) {
  const track_info__ record;
  ledger_dpv_list_request list;
  ledger_dpv_datalist_request data;
  char text[256] = "";
  EXPECT_EQ(ot_add_list_datalist(&list, nullptr, nullptr, nullptr, "t", &record, track_info___brec,
                                 text, sizeof text),
            ledger_provider_failure);
  EXPECT_STREQ(text, "(ot_add_list_datalist) failed to add item t ");
  EXPECT_EQ(ot_add_list_datalist(nullptr, &data, nullptr, nullptr, "u", &record, track_info___brec,
                                 text, sizeof text),
            ledger_provider_failure);
  EXPECT_STREQ(text, "(ot_add_list_datalist) failed to add item u ");
  brec_forget_all();
  EXPECT_EQ(ot_add_list_datalist(nullptr, &data, nullptr, nullptr, "v", &record, track_info___brec,
                                 text, sizeof text),
            ledger_provider_failure);
  EXPECT_EQ(text, "(ot_add_list_datalist) Brec encode failed for item <v>, (" +
                      std::string(err_string(record_unknown_type)) + ")");
  ASSERT_EQ(ot_records_register(), 0);
}

TEST_F(provider_list, out_of_memory_is_a_failure_or_no_data_and_keeps_nothing) {
  add_interface("a", "eth0");
  add_list("b", track_type::threshold_weight, {{"a", 1}});
  const auto run = [&](auto operation, auto release) {
    handed_over answer{};
    const live_allocations before = count_live_allocations();
    return for_each_failing_allocation(
        [&] { answer = ask(operation, release, ""); },
        [&](std::uint64_t k, bool hit) {
          EXPECT_THAT(answer.status, hit ? testing::AnyOf(ledger_no_data, ledger_provider_failure)
                                         : testing::AnyOf(0, 0))
              << "allocation " << k;
          EXPECT_EQ(answer.has_handle, !hit);
          if (answer.status == 0) {
            EXPECT_EQ(answer.count, 2U);
          }
          EXPECT_EQ(count_live_allocations().count, before.count) << "allocation " << k;
        });
  };
  EXPECT_GT(run(ot_track_list, ledger_dpv_list_free), 4U);
  EXPECT_GT(run(ot_track_datalist, ledger_dpv_datalist_free), 6U);
  EXPECT_GT(run(ot_track_brief_list, ledger_dpv_list_free), 3U);
  EXPECT_GT(run(ot_track_brief_datalist, ledger_dpv_datalist_free), 4U);
}

TEST_F(provider_list, a_failure_to_add_is_traced) {
  add_interface("a", "eth0");
  lines traced;
  trace();
  for_each_failing_allocation([&] { ask(ot_track_datalist, ledger_dpv_datalist_free, ""); },
                              [&](std::uint64_t, bool) {
                                const lines some = field::take_traces();
                                traced.insert(traced.end(), some.begin(), some.end());
                              });
  EXPECT_THAT(traced, Contains("(ot_get_tracks) : Failed to alloc memory for track_info"));
  EXPECT_THAT(traced, Contains("(ot_track_list_datalist) : (ot_add_list_datalist) failed to add "
                               "item a "));
}

TEST_F(provider_list, the_builders_and_fillers_trace_their_entry) {
  add_interface("a", "eth0");
  trace();
  datalist("");
  EXPECT_THAT(
      field::take_traces(),
      testing::IsSupersetOf(
          {"Entering (ot_track_list_datalist) : ", "Entering (ot_get_tracks) : ",
           "Entering (ot_fill_track_info) : ", "Entering (ot_fill_intf_tracking_info) : "}));
  ask(ot_track_brief_list, ledger_dpv_list_free, "");
  EXPECT_THAT(field::take_traces(),
              testing::IsSupersetOf(
                  {"Entering (ot_track_brief_list_datalist) : ",
                   "Entering (ot_get_tracks_brief) : ", "Entering (ot_fill_track_info_brief) : "}));
  detail("type-interface");
  EXPECT_THAT(field::take_traces(), Contains("Entering (ot_get_tracks_by_type) : "));
  brief("a");
  EXPECT_THAT(field::take_traces(), Contains("Entering (ot_get_track_by_name_brief) : "));
}

}  // namespace
}  // namespace ot::test
