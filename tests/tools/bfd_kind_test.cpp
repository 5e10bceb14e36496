// "set NAME bfd ADDRESS ...": its item, its bounds, and how a session changes.
#include <gmock/gmock.h>

#include <sstream>

#include "tests/tools/stages.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/kinds/kinds.h"
#include "tools/trackctl/plan.h"

namespace ot::trackctl {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;
using ::testing::StrEq;

const track_kind& kind() {
  return *find_track_kind("bfd");
}

std::vector<config_item> items_of(const std::string& words) {
  command_line app{"", "set"};
  const items_reader read_items = kind().define(app);
  std::istringstream stream(words);
  parse_arguments(app, {std::istream_iterator<std::string>(stream), {}});
  return read_items();
}

std::vector<commit> plan(const track_items& present, const std::string& words,
                         const wanted_delays& delays = {}) {
  return stages_of(plan_set(
      "t", present,
      {kind().folder, items_of(words), kind().recreate_on_change, kind().only_from_nothing},
      delays));
}

// A track as "set t bfd WORDS" makes it.
track_items following(const std::string& words) {
  const auto items = items_of(words);
  return {{"a", u32_value(1)}, {items[0].path, items[0].value}};
}

constexpr const char* session = "192.0.2.1 --interface eth0";

TEST(bfd_kind, gives_one_item_with_the_defaults) {
  const auto items = items_of(session);
  ASSERT_EQ(items.size(), 1U);
  EXPECT_EQ(items[0].path,
            "type/bfdprb/0x9/rate/0x12c/debounce_count/0x3/Interface/eth0/destaddress");
  EXPECT_EQ(items[0].value.kind, ledger_kind::tuple);
  EXPECT_THAT(items[0].value.bytes,
              ElementsAre(std::byte{192}, std::byte{0}, std::byte{2}, std::byte{1}));
}

TEST(bfd_kind, writes_rate_and_debounce_count_as_hexadecimal_numbers) {
  EXPECT_EQ(items_of("192.0.2.1 --interface eth0.7 --rate 10 --debounce 1")[0].path,
            "type/bfdprb/0x9/rate/0xa/debounce_count/0x1/Interface/eth0.7/destaddress");
  EXPECT_EQ(items_of("192.0.2.1 --interface eth0 --rate 60000 --debounce 255")[0].path,
            "type/bfdprb/0x9/rate/0xea60/debounce_count/0xff/Interface/eth0/destaddress");
}

TEST(bfd_kind, refuses_what_is_out_of_bounds_with_the_bounds) {
  const struct {
    const char* words;
    const char* reason;
  } rows[] = {
      {"192.0.2.1 --interface eth0 --rate 9",
       "--rate \"9\" is not a whole number of milliseconds from 10 to 60000"},
      {"192.0.2.1 --interface eth0 --rate 60001",
       "--rate \"60001\" is not a whole number of milliseconds from 10 to 60000"},
      {"192.0.2.1 --interface eth0 --rate 50ms",
       "--rate \"50ms\" is not a whole number of milliseconds from 10 to 60000"},
      {"192.0.2.1 --interface eth0 --debounce 0",
       "--debounce \"0\" is not a whole number of packets from 1 to 255"},
      {"192.0.2.1 --interface eth0 --debounce 256",
       "--debounce \"256\" is not a whole number of packets from 1 to 255"},
      {"192.0.2 --interface eth0",
       "peer \"192.0.2\" is not an IPv4 address; give one such as 192.0.2.1"},
      {"2001:db8::1 --interface eth0",
       "peer \"2001:db8::1\" is not an IPv4 address; give one such as 192.0.2.1"},
      {"0.0.0.0 --interface eth0",
       "peer \"0.0.0.0\" is no single host; give the address of the router at the other end"},
      {"224.0.0.5 --interface eth0",
       "peer \"224.0.0.5\" is no single host; give the address of the router at the other end"},
      {"255.255.255.255 --interface eth0",
       "peer \"255.255.255.255\" is no single host; give the address of the router at the other "
       "end"},
      {"192.0.2.1 --interface a/b",
       "interface name \"a/b\" has a '/' or a blank; give one as `ip link` lists it"},
  };
  for (const auto& row : rows) {
    try {
      items_of(row.words);
      ADD_FAILURE() << "takes " << row.words;
    } catch (const failure& reason) {
      EXPECT_EQ(reason.status, exit_usage) << row.words;
      EXPECT_THAT(reason.what(), StrEq(row.reason));
    }
  }
}

TEST(bfd_kind, needs_an_interface) {
  for (const auto& [words, missing] :
       {std::pair{"192.0.2.1", "--interface"}, std::pair{"--interface eth0", "ADDRESS"}}) {
    try {
      items_of(words);
      ADD_FAILURE() << "takes " << words;
    } catch (const failure& reason) {
      EXPECT_EQ(reason.status, exit_usage) << words;
      EXPECT_EQ(reason.what(), std::string(missing) + " is required; `set --help` shows how");
    }
  }
}

TEST(bfd_kind, creates_in_one_commit_with_the_delays_last) {
  const auto commits = plan({}, session, {2, 0});
  ASSERT_EQ(commits.size(), 1U);
  EXPECT_THAT(
      commits[0],
      ElementsAre(Field(&ledger_proposal::path, "/cfg/gl/object_tracking/track/t/a"),
                  Field(&ledger_proposal::path,
                        "/cfg/gl/object_tracking/track/t/type/bfdprb/0x9/rate/0x12c/"
                        "debounce_count/0x3/Interface/eth0/destaddress"),
                  Field(&ledger_proposal::path, "/cfg/gl/object_tracking/track/t/delay_up")));
}

TEST(bfd_kind, leaves_an_unchanged_session_alone) {
  EXPECT_THAT(plan(following(session), "192.0.2.1 --interface eth0 --rate 300 --debounce 3"),
              IsEmpty());
}

TEST(bfd_kind, changes_a_delay_in_place) {
  const auto commits = plan(following(session), session, {0, 5});
  ASSERT_EQ(commits.size(), 1U);
  EXPECT_THAT(commits[0], ElementsAre(Field(&ledger_proposal::path,
                                            "/cfg/gl/object_tracking/track/t/delay_down")));
}

TEST(bfd_kind, changes_anything_of_the_session_by_deletion_and_creation) {
  for (const char* const changed :
       {"192.0.2.2 --interface eth0", "192.0.2.1 --interface eth1",
        "192.0.2.1 --interface eth0 --rate 50", "192.0.2.1 --interface eth0 --debounce 5"}) {
    const auto commits = plan(following(session), changed);
    ASSERT_EQ(commits.size(), 2U) << changed;
    EXPECT_THAT(commits[0], Each(Field(&ledger_proposal::remove, true)));
    EXPECT_EQ(commits[0].size(), 2U);
    EXPECT_THAT(commits[1], Each(Field(&ledger_proposal::remove, false)));
    EXPECT_EQ(commits[1].size(), 2U);
  }
}

// The service makes no session for a track that it has already, if only for its delays.
TEST(bfd_kind, makes_a_track_without_a_type_anew) {
  const auto commits = plan({{"a", u32_value(1)}, {"delay_up", u32_value(4)}}, session, {4, 0});
  ASSERT_EQ(commits.size(), 2U);
  EXPECT_THAT(commits[0], Each(Field(&ledger_proposal::remove, true)));
  EXPECT_EQ(commits[0].size(), 2U);
  EXPECT_EQ(commits[1].size(), 3U);
}

}  // namespace
}  // namespace ot::trackctl
