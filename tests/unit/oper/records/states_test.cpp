// The states of all tracks as one record, to the millisecond.
#include "oper/records/states.h"

#include "platform/ledger_status.h"
#include "tests/unit/oper/records/tracks.h"

namespace ot::test {
namespace {

using testing::ElementsAre;
using namespace std::chrono_literals;

class states_record : public record_tracks {
 protected:
  // "uplink 1 2 delayed 2 4999": state, source, the delay's state and milliseconds.
  static lines read(const std::string& key) {
    ledger_value value;
    const std::string path = "oper/object_tracking/gl/states/" + key;
    if (ledger_item_get(ledger_get_default_conn(), path.c_str(), &value) != 0) {
      return {"no data"};
    }
    state_info__ first{};
    EXPECT_EQ(brec_decode(state_info___brec, value.bytes(), &first), 0);
    lines found;
    for (const state_info__* each = &first; each != nullptr; each = each->next) {
      found.push_back(std::string(each->Name.view()) + " " + std::to_string(each->State) + " " +
                      std::to_string(each->Source));
      if (each->Delayed) {
        found.back() +=
            " delayed " + std::to_string(each->Waiting) + " " + std::to_string(each->Remaining);
      }
    }
    brec_release(state_info___brec, &first);
    return found;
  }
};

TEST_F(states_record, is_empty_without_tracks) {
  EXPECT_THAT(read("all"), ElementsAre("no data"));
  EXPECT_THAT(read("nobody"), ElementsAre("no data"));
}

TEST_F(states_record, has_every_track_with_the_delay_that_runs) {
  add("unknown", track_type::interface, track_state::unknown);
  ot_track& uplink = add_interface("uplink", "eth0");
  uplink.source_state = track_state::down;
  start_delay(uplink, 5, track_state::down);
  field::advance(1250ms);
  EXPECT_THAT(read("all"),
              testing::UnorderedElementsAre("unknown 0 0", "uplink 1 2 delayed 2 3750"));
  EXPECT_THAT(read("uplink"), ElementsAre("uplink 1 2 delayed 2 3750"));
}

TEST_F(states_record, has_names_of_any_length_and_as_many_tracks_as_there_can_be) {
  const std::string longest(39, 'n');
  add(longest, track_type::none);
  EXPECT_THAT(read(longest), ElementsAre(longest + " 1 1"));
  for (std::uint32_t number = 1; number < max_tracks; ++number) {
    add("t" + std::to_string(number), track_type::none);
  }
  EXPECT_EQ(read("all").size(), max_tracks);
}

TEST_F(states_record, is_no_data_without_memory) {
  add("t", track_type::none);
  const ledger_dpv_request request{"all"};
  ledger_dpv_reply reply;
  int answer = 0;
  {
    const alloc_faults none(0, alloc_fault_mode::onward);
    answer = ot_dpv_states_get(&reply, &request);
  }
  EXPECT_EQ(answer, ledger_no_data);
  EXPECT_EQ(reply.buffer, nullptr);
}

}  // namespace
}  // namespace ot::test
