// A configuration as a file: its lines, what is told of bad ones, and the difference it makes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>

#include "tests/tools/stages.h"
#include "tools/trackctl/file_changes.h"

namespace ot::trackctl {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

class track_files : public ::testing::Test {
 protected:
  track_files() {
    std::string name = fs::temp_directory_path() / "ot-files-XXXXXX";
    folder_ = mkdtemp(name.data());
  }
  ~track_files() override { fs::remove_all(folder_); }

  std::string write(const std::string& name, const std::string& text) {
    const fs::path path = folder_ / name;
    fs::create_directories(path.parent_path());
    std::ofstream(path) << text;
    return path;
  }
  // Errors without the folder's name.
  std::vector<std::string> errors_of(const std::string& path) {
    std::vector<std::string> errors = read_track_file(path).errors;
    for (std::string& error : errors) {
      for (std::size_t at = 0; (at = error.find(folder_.string() + '/')) != std::string::npos;) {
        error.erase(at, folder_.string().size() + 1);
      }
    }
    return errors;
  }
  static std::vector<std::string> names_of(const file_content& content) {
    EXPECT_THAT(content.errors, IsEmpty());
    std::vector<std::string> names;
    for (const file_track& track : content.tracks) {
      names.push_back(track.said.name);
    }
    return names;
  }

  fs::path folder_;
};

TEST_F(track_files, comments_blank_lines_and_long_lines) {
  const std::string path = write("t.conf",
                                 "# all\r\n\n  uplink interface eth0 # the first\r\n"
                                 "site and uplink \\\n   not backup\n"
                                 "last interface e#0\n"
                                 "open or site \\");
  const file_content content = read_track_file(path);
  ASSERT_THAT(names_of(content), ElementsAre("uplink", "site", "last", "open"));
  EXPECT_EQ(content.tracks[0].place, path + ":3");
  EXPECT_EQ(content.tracks[1].place, path + ":4");
  EXPECT_EQ(content.tracks[1].said.words, "and uplink not backup");
  EXPECT_EQ(content.tracks[2].said.words, "interface e#0");
  EXPECT_EQ(content.tracks[3].place, path + ":7");
}

TEST_F(track_files, a_comment_ends_with_its_line) {
  const auto content = read_track_file(write("t.conf",
                                             "# off: x interface x0 \\\n"
                                             "a interface a0 # and this \\\n"
                                             "b or a \\\n"
                                             "# c \\\n"
                                             "c interface c0\n"));
  ASSERT_THAT(names_of(content), ElementsAre("a", "b", "c"));
  EXPECT_EQ(content.tracks[1].said.words, "or a");
}

TEST_F(track_files, what_editors_leave_in_a_line) {
  const auto content = read_track_file(write("t.conf",
                                             "\xEF\xBB\xBF# saved elsewhere\n"
                                             "include sub\n"
                                             "b or a \\ \t\n  not c \\\r\n d\r\n"));
  EXPECT_THAT(content.errors, ElementsAre(::testing::HasSubstr("sub: No such file")));
  ASSERT_EQ(content.tracks.size(), 1U);
  EXPECT_EQ(content.tracks[0].said.words, "or a not c d");
  write("sub", "\xEF\xBB\xBFx interface x0");
  EXPECT_THAT(names_of(read_track_file(folder_ / "t.conf")), ElementsAre("x", "b"));
}

TEST_F(track_files, includes_of_files_and_folders) {
  write("more/b.conf", "b interface b0\n");
  write("more/a.conf", "a interface a0\ninclude ../one\n");
  for (const char* const none : {"no.txt", "a.conf~", "a.conf.dpkg-old", ".a.conf", ".#a.conf"}) {
    write(std::string("more/") + none, "nonsense\n");
  }
  write("one", "include interface i0\n");
  EXPECT_THAT(names_of(read_track_file(write("t.conf",
                                             "x interface x0\ninclude more\n"
                                             "y interface y0\n"))),
              ElementsAre("x", "a", "include", "b", "y"));
}

TEST_F(track_files, every_bad_line_is_told_with_its_place) {
  write("sub.conf", "\nup interface eth1\n");
  const std::string path = write("t.conf",
                                 "up interface eth0\n"
                                 "x interfce eth0\n"
                                 "alone\n"
                                 "include sub.conf\n"
                                 "include nothing\n"
                                 "not interface eth0\n"
                                 "y interface\n"
                                 "z route 10.1.2.3/8\n"
                                 "help interface --help\n"
                                 "w interface a\001b\n");
  EXPECT_THAT(
      errors_of(path),
      ElementsAre(
          "t.conf:2: there is no kind of track \"interfce\"; the kinds are: interface, route, "
          "probe, bfd, and, or, weight, percentage",
          "t.conf:3: a line is NAME KIND ..., such as: uplink interface eth0, or include PATH",
          "sub.conf:2: track \"up\" stands in t.conf:1 already",
          "t.conf:5: nothing: No such file or directory", ::testing::StartsWith("t.conf:6: "),
          ::testing::StartsWith("t.conf:7: IFNAME"), ::testing::StartsWith("t.conf:8: "),
          "t.conf:9: a track has no --help",
          "t.conf:10: character 14 of the line is no text (0x01)"));
}

TEST_F(track_files, words_that_mean_something_elsewhere) {
  EXPECT_THAT(
      errors_of(write("t.conf",
                      "a interface \"eth0\"\n"
                      "'b' interface eth0\n"
                      "c or a \\ # more\n"
                      "include my tracks.conf\n"
                      "trackctl set d interface eth0\n"
                      "set e interface eth0\n"
                      "set interface eth0\n"
                      "include interface eth0\n")),
      ElementsAre("t.conf:1: \"eth0\" has a quotation mark; words stand without them",
                  "t.conf:2: 'b' has a quotation mark; words stand without them",
                  "t.conf:3: a \\ goes on in the next line only where nothing stands behind it",
                  "t.conf:4: include takes one path, without blanks",
                  "t.conf:5: leave \"trackctl set\" out: a line is NAME KIND ...",
                  "t.conf:6: leave \"set\" out: a line is NAME KIND ..."));
}

TEST_F(track_files, a_file_that_includes_itself_ends) {
  EXPECT_THAT(errors_of(write("t.conf", "include t.conf\n")),
              ElementsAre("t.conf:1: includes stand in each other more than 8 times; does the "
                          "file include itself?"));
}

TEST_F(track_files, lines_are_bounded_over_all_files) {
  write("a", std::string(60'000, '\n'));
  write("b", std::string(60'000, '\n'));
  EXPECT_THAT(errors_of(write("t.conf", "include a\ninclude b\n")),
              ElementsAre("b:39999: too many lines"));
  EXPECT_THAT(errors_of(write("all", std::string(100'000, '\n'))), IsEmpty());
}

TEST_F(track_files, what_is_no_file) {
  EXPECT_THAT(errors_of(folder_ / "absent"), ElementsAre("absent: No such file or directory"));
  fs::create_directory(folder_ / "sub");
  EXPECT_THAT(errors_of(folder_ / "sub"),
              ElementsAre("sub: it is a folder; a file that says \"include sub\" reads all of it"));
  EXPECT_THAT(errors_of(write("long", "a and " + std::string(1 << 18, 'x'))),
              ElementsAre("long:1: the line is too long"));
  EXPECT_THAT(errors_of("/dev/zero"), ElementsAre("/dev/zero:1: the line is too long"));
}

// --- The difference ------------------------------------------------------------------------------

arguments words_of(const std::string& line) {
  std::istringstream words(line);
  return {std::istream_iterator<std::string>(words), {}};
}

std::vector<file_track> said(const std::vector<std::string>& lines) {
  std::vector<file_track> tracks;
  for (const std::string& line : lines) {
    tracks.push_back({read_track_line(words_of(line)), "t:" + std::to_string(tracks.size() + 1)});
  }
  return tracks;
}

configured_tracks configured(const std::vector<std::string>& lines) {
  return configuration_after({}, said(lines), true);
}

// What the service makes of a commit; a delete of an existence takes everything along.
configured_tracks made(configured_tracks tracks, const commit& changes) {
  std::uint32_t stage = 0;
  for (const ledger_proposal& change : changes) {
    EXPECT_GE(change.stage, stage);
    stage = change.stage;
    const std::string path = change.path.substr(tracks_root.size());
    const std::string name = path.substr(0, path.find('/'));
    const std::string item = path.substr(name.size() + 1);
    if (!change.remove) {
      tracks[name].insert_or_assign(item, item_value{change.kind, change.value});
    } else if (tracks[name].erase(item) == 0) {
      ADD_FAILURE() << "delete of an absent item: " << change.path;
    } else if (item == existence_item || tracks[name].empty()) {
      tracks.erase(name);
    }
  }
  return tracks;
}

TEST(file_difference, is_told_in_words) {
  const auto present = configured({"a interface e0 --delay-up 5", "b interface e1", "c and a b",
                                   "gone route 10.0.0.0/8 --vrf red"});
  const auto wanted = said(
      {"a interface e0 --delay-up 10 --delay-down 2", "b probe 3", "c and b a", "n or c not a"});
  EXPECT_THAT(plan_file(present, wanted, true).lines,
              ElementsAre("~ a delay-up 5 → 10, delay-down 0 → 2", "~ b interface e1 → probe 3",
                          "+ n or c not a", "- gone route 10.0.0.0/8 --vrf red"));
  EXPECT_THAT(plan_file(present, wanted, false).lines,
              ElementsAre("~ a delay-up 5 → 10, delay-down 0 → 2", "~ b interface e1 → probe 3",
                          "+ n or c not a"));
}

TEST(file_difference, is_one_commit_whose_deletes_come_first) {
  const auto present = configured({"a interface e0", "b interface e1"});
  const auto wanted = said({"a probe 3", "n interface e2"});
  const file_changes plan = plan_file(present, wanted, true);
  const auto stages = stages_of(plan.changes);
  ASSERT_EQ(stages.size(), 3U);  // b goes; a goes; a and n come
  EXPECT_TRUE(stages[0].back().remove);
  EXPECT_TRUE(stages[1].back().remove);
  EXPECT_FALSE(stages[2].back().remove);
  EXPECT_EQ(made(present, plan.changes), configuration_after(present, wanted, true));
}

TEST(file_difference, tracks_that_no_words_make_are_left_or_pruned_as_they_are) {
  configured_tracks present = configured({"a interface e0"});
  present["odd"] = {{"a", u32_value(1)}, {"type/list/0x3/a", u32_value(1)}};
  present["a"].emplace("type/prb/0x5/op_id", u32_value(2));
  EXPECT_EQ(write_track_line("odd", present["odd"]), std::nullopt);
  EXPECT_EQ(write_track_line("a", present["a"]), std::nullopt);
  const auto plan = plan_file(present, said({"a interface e0"}), true);
  EXPECT_THAT(plan.lines, ElementsAre("~ a (items that no words make) → interface e0",
                                      "- odd (items that no words make)"));
  EXPECT_EQ(made(present, plan.changes), configured({"a interface e0"}));
}

TEST(track_line, words_that_look_like_options_or_comments) {
  for (const char* const line :
       {"-z interface e1", "a interface -- -e", "a and --delay-up 5 -- -z not b", "a or -- not -z",
        "a weight --up 5 --down 1 --delay-down 2 -- -z=3 b=4",
        "a percentage --up 5 --down 1 -- -z b", "a interface e#", "a interface e\\ --delay-up 1"}) {
    const auto tracks = said({line});
    const member_order as_given = [](std::vector<std::string>& /*members*/) {};
    EXPECT_EQ(write_track_line(tracks[0].said.name, tracks[0].said.items(), false, as_given), line);
  }
  for (const char* const line : {"a interface #e", "a interface e\\", "a interface \"e\""}) {
    const auto tracks = said({line});
    EXPECT_EQ(write_track_line("a", tracks[0].said.items()), std::nullopt) << line;
  }
}

TEST(file_conflicts, a_list_that_names_itself) {
  const auto wanted = said({"a and b", "b or a not b"});
  EXPECT_THAT(find_conflicts(configuration_after({}, wanted, false), wanted),
              ElementsAre("t:2: list \"b\" names itself as a member, which no list can"));
}

TEST(file_conflicts, two_tracks_on_one_session) {
  const std::string text =
      "t:1: track \"b\" follows 192.0.2.1 over e0 too, and of several tracks on one session only "
      "the newest follows it; give --shared to each, or make one a list of the other";
  const auto one =
      said({"a bfd 192.0.2.1 --interface e0", "b bfd 192.0.2.1 --interface e0 --rate 50 --shared"});
  EXPECT_THAT(find_conflicts(configuration_after({}, one, false), one), ElementsAre(text));
  const auto both =
      said({"a bfd 192.0.2.1 --interface e0 --shared", "b bfd 192.0.2.1 --interface e0 --shared",
            "c bfd 192.0.2.1 --interface e1"});
  EXPECT_THAT(find_conflicts(configuration_after({}, both, false), both), IsEmpty());
}

TEST(file_conflicts, two_tracks_on_one_operation) {
  const auto wanted = said({"a probe 3", "b probe 3", "c probe 4"});
  const std::string end =
      " follows probe operation 3 too, and only one track can follow an operation; make one a list "
      "of the other";
  EXPECT_THAT(find_conflicts(configuration_after({}, wanted, false), wanted),
              ElementsAre("t:1: track \"b\"" + end, "t:2: track \"a\"" + end));
}

TEST(file_conflicts, more_tracks_than_there_can_be) {
  configured_tracks present;
  for (int number = 0; number < 1500; ++number) {
    present["t" + std::to_string(number)] = {{"a", u32_value(1)}};
  }
  const auto more = said({"more interface e0"});
  EXPECT_THAT(find_conflicts(configuration_after(present, more, false), more),
              ElementsAre("there would be 1501 tracks, and 1500 can be"));
  EXPECT_THAT(find_conflicts(configuration_after(present, more, true), more), IsEmpty());
}

TEST(file_warnings, members_that_are_no_track_and_cycles) {
  const auto wanted = said({"a and b", "b or c nobody", "c and a", "d and a c", "e interface e0"});
  EXPECT_THAT(
      find_warnings(configuration_after({}, wanted, false), wanted),
      ElementsAre("t:1: warning: these lists contain each other and wait for each other: a -> b -> "
                  "c -> a; they keep the states they have until one of them is changed",
                  "t:2: warning: there is no track \"nobody\" yet"));
}

TEST(file_warnings, tell_a_list_of_a_cycle_once) {
  const auto wanted = said({"a and b c", "b and a", "c and a"});
  EXPECT_THAT(find_warnings(configuration_after({}, wanted, false), wanted),
              ElementsAre(testing::HasSubstr("a -> b -> a")));
}

TEST(file_warnings, are_one_a_list_however_many_members_are_no_track) {
  const auto wanted = said({"two or x y", "four or w x y z", "many and a two b c d not e"});
  EXPECT_THAT(find_warnings(configuration_after({}, wanted, false), wanted),
              ElementsAre("t:1: warning: there are no such tracks yet: x, y",
                          "t:2: warning: there are no such tracks yet: w, x, y, z",
                          "t:3: warning: there are no such tracks yet: a, b, c and 2 more"));
}

// --- Random configurations -----------------------------------------------------------------------

class random_configuration {
 public:
  explicit random_configuration(unsigned seed) : random_(seed) {}

  std::vector<std::string> lines() {
    std::vector<std::string> all;
    for (int number = 0; number < 12; ++number) {
      if (upto(3) != 0) {
        all.push_back("t" + std::to_string(number) + ' ' + object() + delays());
      }
    }
    return all;
  }

 private:
  unsigned upto(unsigned most) { return std::uniform_int_distribution<unsigned>(0, most)(random_); }
  std::string text(unsigned most) { return std::to_string(upto(most)); }
  std::string members(const char* between, bool negated) {
    std::string words;
    for (unsigned number = upto(3); number <= 12; number += 1 + upto(5)) {
      words += (words.empty() ? "" : " ");
      words += negated && upto(1) == 0 ? "not " : "";
      words += "t" + std::to_string(number) + (*between == '\0' ? "" : between + text(90));
    }
    return words;
  }
  std::string object() {
    switch (upto(7)) {
      case 0:
        return "interface e" + text(3);
      case 1:
        return "route 10." + text(3) + ".0.0/16" + (upto(1) == 0 ? " --vrf red" : "");
      case 2:
        return "probe " + std::to_string(1 + upto(3));
      case 3:
        return "bfd 192.0.2." + std::to_string(1 + upto(200)) + " --interface e0 --rate " +
               std::to_string(10 + upto(90));
      case 4:
        return "and " + members("", true);
      case 5:
        return "or " + members("", true);
      case 6:
        return "weight --up 80 --down " + text(40) + ' ' + members("=", false);
      default:
        return "percentage --up 80 --down " + text(40) + ' ' + members("", false);
    }
  }
  std::string delays() {
    return (upto(2) == 0 ? " --delay-up " + text(9) : "") +
           (upto(2) == 0 ? " --delay-down " + text(9) : "");
  }

  std::mt19937 random_;
};

class file_property : public ::testing::TestWithParam<unsigned> {};

TEST_P(file_property, any_file_makes_its_configuration_of_any_other) {
  random_configuration configuration(GetParam());
  for (int round = 0; round < 8; ++round) {
    const configured_tracks present = configured(configuration.lines());
    const auto wanted = said(configuration.lines());
    for (const bool prune : {false, true}) {
      const file_changes plan = plan_file(present, wanted, prune);
      const configured_tracks after = made(present, plan.changes);
      EXPECT_EQ(after, configuration_after(present, wanted, prune));
      EXPECT_EQ(plan.lines.size(), plan.made + plan.changed + plan.deleted);
      EXPECT_THAT(plan_file(after, wanted, prune).lines, IsEmpty());
    }
  }
}

TEST_P(file_property, what_is_written_reads_back) {
  random_configuration configuration(GetParam());
  for (const auto& [name, items] : configured(configuration.lines())) {
    const auto line = write_track_line(name, items);
    ASSERT_TRUE(line) << name;
    EXPECT_EQ(read_track_line(words_of(*line)).items(), items) << *line;
    EXPECT_EQ(write_track_line(name, read_track_line(words_of(*line)).items()), line);
  }
}

INSTANTIATE_TEST_SUITE_P(seeds, file_property, ::testing::Range(0U, 5U));

}  // namespace
}  // namespace ot::trackctl
