// What a reader of one key gets from the data provider.
#include <gmock/gmock.h>

#include "oper/records/provider.h"
#include "platform/err_string.h"
#include "platform/ledger_status.h"
#include "tests/unit/oper/records/tracks.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

class provider_get : public record_tracks {
 protected:
  void add_one_of_each() {
    add_interface("i1", "eth0");
    add_interface("i2", "eth1", track_state::down);
    add("r1", track_type::route);
    add("p1", track_type::probe);
    add("b1", track_type::bfd);
    add("new", track_type::none);
    add_list("l1", track_type::boolean_and, {{"i1", 0}});
  }
};

TEST_F(provider_get, a_track_by_its_name) {
  add_one_of_each();
  EXPECT_THAT(names_of(*detail("l1")), ElementsAre("l1"));
  EXPECT_EQ(status, 0);
  EXPECT_EQ(detail("l1")->BoolTracks->ObjectName.view(), "i1");
  const auto record = brief("i2");
  EXPECT_THAT(names_of(*record), ElementsAre("i2"));
  EXPECT_EQ(record->TrackTypeInfo.InterfaceTracks.InterfaceName.view(), "eth1");
  EXPECT_FALSE(record->TrackState);
}

TEST_F(provider_get, an_unknown_name_is_no_data) {
  add_one_of_each();
  detail("absent");
  EXPECT_EQ(status, ledger_no_data);
  brief("absent");
  EXPECT_EQ(static_cast<std::uint32_t>(status), 0x40818600U);
}

TEST_F(provider_get, all_of_a_type) {
  detail("type-interface");
  EXPECT_EQ(status, ledger_no_data);
  add_one_of_each();
  EXPECT_THAT(names_of(*detail("type-interface")), UnorderedElementsAre("i1", "i2"));
  EXPECT_THAT(names_of(*brief("type-interface")), UnorderedElementsAre("i1", "i2"));
  EXPECT_THAT(names_of(*detail("type-route")), ElementsAre("r1"));
  EXPECT_THAT(names_of(*brief("type-prb")), ElementsAre("p1"));
  EXPECT_THAT(names_of(*detail("type-prb")), ElementsAre("p1"));
  brief("type-bfdprb");
  EXPECT_EQ(status, ledger_no_data);
}

TEST_F(provider_get, a_key_of_a_type_stands_before_a_track_of_that_name) {
  add("r1", track_type::route);
  add_interface("type-route", "eth0");
  EXPECT_THAT(names_of(*detail("type-route")), ElementsAre("r1"));
  EXPECT_THAT(names_of(*brief("type-route")), ElementsAre("r1"));
  add_interface("all-tracks", "eth0");
  EXPECT_THAT(names_of(*brief("all-tracks")),
              UnorderedElementsAre("r1", "type-route", "all-tracks"));
}

TEST_F(provider_get, all_tracks_is_a_key_of_the_brief_branch_only) {
  brief("all-tracks");
  EXPECT_EQ(status, ledger_no_data);
  add_one_of_each();
  EXPECT_THAT(names_of(*brief("all-tracks")),
              UnorderedElementsAre("i1", "i2", "r1", "p1", "b1", "new", "l1"));
  detail("all-tracks");
  EXPECT_EQ(status, ledger_no_data);
  add_interface("all-tracks", "eth5");
  EXPECT_THAT(names_of(*detail("all-tracks")), ElementsAre("all-tracks"));
}

TEST_F(provider_get, the_key_is_traced) {
  trace();
  detail("absent");
  EXPECT_THAT(field::take_traces(), Contains("(ot_dpv_track_get) :track = absent"));
  brief("absent");
  EXPECT_THAT(field::take_traces(), Contains("(ot_dpv_track_get_brief) :track = absent"));
}

TEST_F(provider_get, a_record_that_cannot_be_encoded_is_no_data) {
  add_interface("t", "eth0");
  brec_forget_all();
  ledger_dpv_reply reply;
  const ledger_dpv_request request{.key = "t"};
  trace();
  // Without its type's registration nothing that hangs on a record can be freed; this one has
  // nothing.
  EXPECT_EQ(ot_dpv_track_get(&reply, &request), ledger_no_data);
  EXPECT_THAT(field::take_traces(), Contains("(ot_dpv_track_get) : Brec encode failed (" +
                                             std::string(err_string(record_unknown_type)) + ")"));
  EXPECT_EQ(reply.data_kind, 7U);
  EXPECT_EQ(reply.buffer, nullptr);
  EXPECT_EQ(reply.length, 0U);
  ASSERT_EQ(ot_records_register(), 0);
}

TEST_F(provider_get, out_of_memory_is_no_data_and_keeps_nothing) {
  add_one_of_each();
  start_delay(track("i1"), 10, track_state::down);
  struct row {
    const char* key;
    int (*get)(ledger_dpv_reply*, const ledger_dpv_request*);
  };
  for (const row& wanted :
       {row{"l1", ot_dpv_track_get}, row{"type-interface", ot_dpv_track_get},
        row{"all-tracks", ot_dpv_track_get_brief}, row{"i1", ot_dpv_track_get_brief}}) {
    const ledger_dpv_request request{.key = wanted.key};
    ledger_dpv_reply reply;
    int result = 0;
    const live_allocations before = count_live_allocations();
    const auto runs = for_each_failing_allocation(
        [&] {
          reply = {};
          result = wanted.get(&reply, &request);
        },
        [&](std::uint64_t k, bool hit) {
          EXPECT_EQ(result, hit ? ledger_no_data : 0) << wanted.key << " allocation " << k;
          EXPECT_EQ(reply.length == 0, hit);
          delete[] reply.buffer;
          EXPECT_EQ(count_live_allocations().count, before.count);
        });
    EXPECT_GT(runs, 1U) << wanted.key;
  }
}

TEST_F(provider_get, a_lack_of_memory_for_a_record_is_traced) {
  add_interface("t", "eth0");
  const auto traced = [&](auto get, const char* key) {
    const ledger_dpv_request request{.key = key};
    ledger_dpv_reply reply;
    trace();
    {
      const alloc_faults none(0, alloc_fault_mode::onward);
      get(&reply, &request);
    }
    return field::take_traces();
  };
  EXPECT_THAT(traced(ot_dpv_track_get, "t"),
              Contains("(ot_get_track_by_name) : Failed to alloc memory for track_info"));
  EXPECT_THAT(traced(ot_dpv_track_get_brief, "all-tracks"),
              Contains("(ot_get_tracks_brief) : Failed to alloc memory for track_info_brief__"));
}

}  // namespace
}  // namespace ot::test
