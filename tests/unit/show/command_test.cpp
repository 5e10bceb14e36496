// "show track" as a whole: arguments, reading from the service, failures.
#include <algorithm>
#include <cstdio>
#include <iterator>

#include "platform/err_string.h"
#include "platform/ledger_status.h"
#include "platform/service.h"
#include "show/show.h"
#include "tests/unit/oper/records/tracks.h"
#include "tests/unit/show/output.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class show_command : public record_tracks {
 protected:
  // What "object_tracking <words>" prints.
  std::string shown(std::vector<std::string> words) {
    words.insert(words.begin(), "object_tracking");
    std::vector<char*> argv;
    std::transform(words.begin(), words.end(), std::back_inserter(argv),
                   [](std::string& word) { return word.data(); });
    argv.push_back(nullptr);
    return printed([&] { EXPECT_EQ(ot_show(static_cast<int>(words.size()), argv.data()), 0); });
  }

  static lines tracks_in(const std::string& text) {
    lines names;
    const std::string word = "\nTrack ";
    for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
      const std::size_t start = at + word.size();
      names.push_back(text.substr(start, text.find(' ', start) - start));
    }
    return names;
  }
};

TEST_F(show_command, one_track_in_detail) {
  add_interface("uplink", "eth0").state_change_counter = 1;
  EXPECT_EQ(shown({"show", "track", "uplink", "all"}),
            "\nTrack uplink \n"
            "\tInterface eth0 line-protocol\n"
            "\tLine protocol is UP \n"
            "\t1 change, last change 22:13:20 UTC Tue Nov 14 2023\n");
}

TEST_F(show_command, one_track_in_the_table) {
  add_interface("uplink", "eth0");
  add_interface("other", "eth1");
  const std::string table = shown({"show", "track", "uplink"});
  EXPECT_THAT(table, StartsWith("Track      "));
  EXPECT_THAT(table, HasSubstr("\nuplink      "));
  EXPECT_THAT(table, Not(HasSubstr("other")));
  for (const char* word : {"everything", "ALL", "All", "al", "all ", "alle", ""}) {
    EXPECT_EQ(shown({"show", "track", "uplink", word}), table) << word;
  }
}

TEST_F(show_command, all_tracks_in_the_table) {
  add_interface("uplink", "eth0");
  add_interface("other", "eth1");
  const std::string table = shown({"show", "track", "all-tracks"});
  EXPECT_THAT(table, HasSubstr("\nuplink "));
  EXPECT_THAT(table, HasSubstr("\nother "));
  EXPECT_EQ(shown({"show", "track"}), table);
}

TEST_F(show_command, only_the_exact_key_asks_for_all_tracks_in_detail) {
  add_interface("uplink", "eth0");
  for (const char* key : {"All-tracks", "all-track", "all-tracks ", "all"}) {
    EXPECT_EQ(shown({"show", "track", key, "all"}), "") << key;
  }
}

TEST_F(show_command, all_tracks_in_detail_whatever_their_number) {
  EXPECT_EQ(shown({"show", "track", "all-tracks", "all"}), "");
  for (const int count : {1, 100, 101, 200, 250}) {
    for (int index = static_cast<int>(hash_db_count(tracks_table)); index < count; ++index) {
      add_interface("t" + std::to_string(index), "eth0");
    }
    lines names = tracks_in(shown({"show", "track", "all-tracks", "all"}));
    std::sort(names.begin(), names.end());
    EXPECT_EQ(std::unique(names.begin(), names.end()), names.end());
    EXPECT_EQ(names.size(), static_cast<std::size_t>(count));
  }
}

// The track where the second page would begin is gone.
TEST_F(show_command, all_tracks_are_read_anew_when_a_page_has_lost_its_place) {
  for (int index = 0; index < 250; ++index) {
    add_interface("t" + std::to_string(index), "eth0");
  }
  const std::string expected = shown({"show", "track", "all-tracks", "all"});
  for (const int code : {ledger_list_end, ledger_no_data}) {
    ledger_control_fail_next(ledger_operation::list, code, 1);
    EXPECT_EQ(shown({"show", "track", "all-tracks", "all"}), expected);
  }
  trace();
  ledger_control_fail_next(ledger_operation::list, ledger_provider_failure, 1);
  EXPECT_EQ(tracks_in(shown({"show", "track", "all-tracks", "all"})).size(), 100U)
      << "another failure ends it where it is";
  EXPECT_THAT(field::take_traces(), Contains(HasSubstr("Ledger datalist returned")));
}

TEST_F(show_command, an_unknown_track_prints_nothing) {
  add_interface("uplink", "eth0");
  trace();
  EXPECT_EQ(shown({"show", "track", "absent", "all"}), "");
  EXPECT_EQ(shown({"show", "track", "absent"}), "");
  EXPECT_THAT(field::take_traces(), Not(Contains(HasSubstr("cannot get"))));
}

TEST_F(show_command, other_words_print_nothing) {
  add_interface("uplink", "eth0");
  EXPECT_EQ(shown({"show"}), "");
  EXPECT_EQ(shown({"show", "tracks", "uplink"}), "");
  EXPECT_EQ(shown({"show", "trac"}), "");
  EXPECT_EQ(shown({}), "");
}

TEST_F(show_command, the_arguments_are_traced) {
  trace();
  shown({"show", "track", "absent", "all"});
  const lines traced = field::take_traces();
  EXPECT_THAT(traced, Contains("(ot_show)"));
  EXPECT_THAT(traced, Contains("(ot_show_track) : object_tracking ,show, track, absent, all"));
}

TEST_F(show_command, a_service_that_does_not_answer_is_traced) {
  add_interface("t", "eth0");
  trace();
  ledger_control_fail_next(ledger_operation::get, ledger_unreachable);
  EXPECT_EQ(shown({"show", "track", "t", "all"}), "");
  EXPECT_THAT(field::take_traces(),
              Contains("(ot_show_track_info): cannot get the track info from server- " +
                       std::string(err_string(ledger_unreachable))));
  ledger_control_fail_next(ledger_operation::get, ledger_unreachable);
  EXPECT_EQ(shown({"show", "track", "t"}), "");
  EXPECT_THAT(field::take_traces(),
              Contains("(ot_show_track_info_brief): cannot get the track info from server- " +
                       std::string(err_string(ledger_unreachable))));
}

TEST_F(show_command, a_failing_list_is_traced_unless_it_is_over) {
  add_interface("t", "eth0");
  trace();
  ledger_control_fail_next(ledger_operation::bind, ledger_unreachable);
  EXPECT_EQ(shown({"show", "track", "all-tracks", "all"}), "");
  EXPECT_THAT(field::take_traces(), Contains("(ot_show_all_tracks_info) : ledger_bind failed - " +
                                             std::string(err_string(ledger_unreachable))));
  const auto failing = [this](int code) {
    ledger_control_fail_next(ledger_operation::list, code);
    EXPECT_EQ(shown({"show", "track", "all-tracks", "all"}), "");
    return field::take_traces();
  };
  EXPECT_THAT(failing(ledger_provider_failure),
              Contains(testing::MatchesRegex("ot_show_all_tracks_info [0-9]+ Ledger datalist "
                                             "returned: .*")));
  EXPECT_THAT(failing(ledger_no_data), Not(Contains(HasSubstr("Ledger datalist"))));
  EXPECT_THAT(failing(ledger_list_end), Not(Contains(HasSubstr("Ledger datalist"))));
}

TEST_F(show_command, without_the_client_library_nothing_is_bound) {
  add_interface("t", "eth0");
  ledger_control_library(false);
  trace();
  EXPECT_EQ(shown({"show", "track", "all-tracks", "all"}), "");
  EXPECT_THAT(field::take_traces(), Contains("(ot_show_all_tracks_info) : ledger_bind failed - " +
                                             std::string(err_string(ledger_library_missing))));
  EXPECT_EQ(static_cast<std::uint32_t>(ledger_library_missing), 0x8081c200U);
  ledger_control_library(true);
  EXPECT_THAT(shown({"show", "track", "all-tracks", "all"}), StartsWith("\nTrack t \n"));
}

TEST_F(show_command, out_of_memory_ends_quietly) {
  add_interface("t", "eth0");
  struct row {
    const char* name;
    void (*show)(const char* key);
  };
  for (const row& command : {row{"ot_show_track_info", ot_show_track_info},
                             row{"ot_show_track_info_brief", ot_show_track_info_brief}}) {
    const std::string expected = printed([&] { command.show("t"); });
    EXPECT_NE(expected, "");
    trace();
    std::uint64_t runs = 0;
    const std::string text = printed([&] {
      runs = for_each_failing_allocation([&] { command.show("t"); }, [](std::uint64_t, bool) {});
    });
    EXPECT_EQ(text, expected) << "only the run that had its memory prints";
    EXPECT_GT(runs, 1U);
    EXPECT_THAT(field::take_traces(),
                Contains("(" + std::string(command.name) + "): error allocating memory. "));
  }
}

TEST_F(show_command, a_record_of_all_that_finds_no_memory_is_passed_over) {
  add_interface("t", "eth0");
  const std::string expected = printed(ot_show_all_tracks_info);
  trace();
  const std::string text = printed(
      [] { for_each_failing_allocation(ot_show_all_tracks_info, [](std::uint64_t, bool) {}); });
  EXPECT_EQ(text, expected);
  EXPECT_THAT(field::take_traces(),
              Contains("(ot_show_all_tracks_info): Failed to decode DPV brec: " +
                       std::string(err_string(no_memory)) + " "));
}

TEST_F(show_command, a_record_that_cannot_be_decoded_does_not_end_the_walk) {
  add_interface("a", "eth0");
  add_interface("b", "eth0");
  std::string all = printed([] {
    for_each_failing_allocation(ot_show_all_tracks_info,
                                [](std::uint64_t, bool) { std::fputs("end of a run\n", stdout); });
  });
  std::size_t with_one = 0;
  std::size_t last = 0;
  for (std::size_t end = all.find("end of a run\n"); end != std::string::npos;
       end = all.find("end of a run\n")) {
    last = tracks_in(all.substr(0, end)).size();
    with_one += last == 1 ? 1 : 0;
    all.erase(0, all.find('\n', end) + 1);
  }
  EXPECT_EQ(last, 2U);
  EXPECT_GE(with_one, 2U) << "either record may be the one that finds no memory";
}

TEST_F(show_command, base_and_path_are_read_with_at_most_127_characters_each) {
  const std::string longest(127, 'p');
  const auto seven = bytes_of_numbers({7});
  ASSERT_EQ(ledger_item_set(ledger_get_default_conn(), ("debug/" + longest).c_str(),
                            ledger_kind::u32, seven),
            0);
  ledger_value value;
  EXPECT_EQ(ot_ledger_read_oper("/debug/", (longest + "qqq").c_str(), &value), 0);
  EXPECT_EQ(value.as_u32(), 7U);
  EXPECT_EQ(ot_ledger_read_oper("/debug/", longest.substr(1).c_str(), &value), ledger_no_data);
  const std::string base = "/debug/" + std::string(120, 'b');  // 127 characters
  ASSERT_EQ(ledger_item_set(ledger_get_default_conn(), (base + "x").substr(1).c_str(),
                            ledger_kind::u32, seven),
            0);
  EXPECT_EQ(ot_ledger_read_oper((base + "cut off").c_str(), "x", &value), 0);
}

// A reading process that has nothing of the service in it.
class show_process : public service_fixture {};

TEST_F(show_process, registers_the_records_itself) {
  brec_forget_all();
  EXPECT_EQ(printed([] { ot_show_track_info("t"); }), "");
  const track_info__ record;
  EXPECT_FALSE(samples::encoded(track_info___brec, &record).empty());
}

}  // namespace
}  // namespace ot::test
