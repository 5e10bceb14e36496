// BFD tracks as the show command prints them, through configuration, records and the front-end.
#include "platform/ledger_datalist.h"
#include "platform/ledger_status.h"
#include "platform/memory/alloc_faults.h"
#include "show/show.h"
#include "sources/bfd/session_record.h"
#include "tests/unit/show/output.h"
#include "tests/unit/sources/bfd/fixture.h"

namespace ot::test {
namespace {

using testing::HasSubstr;

class bfd_oper : public bfd_service {
 protected:
  void SetUp() override {
    bfd_service::SetUp();
    field::set_wall_clock(1'700'000'000);
    ASSERT_EQ(configure("peer-b"), 0);
    peer_answers();
  }
  // `view`: "all" for the detailed one.
  static std::string shown(const char* name, const char* view = nullptr) {
    return printed([&] {
      const char* const words[] = {"object_tracking", "show", "track", name, view};
      ot_show_track(words);
    });
  }
};

TEST_F(bfd_oper, in_detail) {
  EXPECT_EQ(shown("peer-b", "all"),
            "\nTrack peer-b \n"
            "\tInterface Gi1 Destination Address 10.0.0.2\n"
            "\tBFD Reachability is UP \n"
            "\t1 change, last change 22:13:20 UTC Tue Nov 14 2023\n");
  peer_silent();
  EXPECT_EQ(shown("peer-b", "all"),
            "\nTrack peer-b \n"
            "\tInterface Gi1 Destination Address 10.0.0.2\n"
            "\tBFD Reachability is DOWN \n"
            "\t2 changes, last change 22:13:20 UTC Tue Nov 14 2023\n");
}

TEST_F(bfd_oper, the_session_under_the_tracks_name) {
  bfdc_session_status told;
  told.diagnostic = 1;
  told.remote_state = bfd_state_init;
  told.remote_diagnostic = 3;
  told.of_another = true;
  told.transmit_interval = 50'000;
  told.receive_interval = 60'000;
  told.detection_time = 180'000;
  told.packets_in = 5'000'000'000;
  told.packets_out = 7;
  told.ups = 2;
  told.downs = 3;
  told.problem.assign("somebody else's");
  field::bfd_session_is("Gi1", peer, told);
  ASSERT_EQ(configure("newer"), 0);
  const auto read = [](const char* name, bfd_session_info__* ret) {
    ledger_value value;
    const int code = ledger_item_get(
        ledger_get_default_conn(),
        (std::string("oper/object_tracking/gl/bfd_session/") + name).c_str(), &value);
    return code != 0 ? code : brec_decode(bfd_session_info___brec, value.bytes(), ret);
  };
  bfd_session_info__ record;
  ASSERT_EQ(read("peer-b", &record), 0);
  EXPECT_EQ(record.State, bfd_state_up);
  EXPECT_EQ(record.Diagnostic, 1U);
  EXPECT_EQ(record.RemoteState, bfd_state_init);
  EXPECT_EQ(record.RemoteDiagnostic, 3U);
  EXPECT_TRUE(record.OfAnother);
  EXPECT_EQ(record.TransmitInterval, 50'000U);
  EXPECT_EQ(record.ReceiveInterval, 60'000U);
  EXPECT_EQ(record.DetectionTime, 180'000U);
  EXPECT_EQ(record.PacketsIn, 5'000'000'000U);
  EXPECT_EQ(record.PacketsOut, 7U);
  EXPECT_EQ(record.Ups, 2U);
  EXPECT_EQ(record.Downs, 3U);
  EXPECT_EQ(record.Problem.view(), "somebody else's");
  EXPECT_EQ(record.FollowedBy.view(), "newer");
  ASSERT_EQ(commit(interface_track("i", "Gi1")), 0);
  EXPECT_EQ(read("i", &record), ledger_no_data);
  EXPECT_EQ(read("nobody", &record), ledger_no_data);
}

TEST_F(bfd_oper, all_sessions_as_a_list) {
  const auto sessions = [] {
    std::vector<std::string> found;
    ledger_page* page = nullptr;
    if (ledger_datalist(ledger_get_default_conn(), "oper/object_tracking/gl/bfd_session", "", 100,
                        &page) != 0) {
      return found;
    }
    while (const ledger_entry* entry = ledger_datalist_next(page)) {
      bfd_session_info__ record;
      EXPECT_EQ(brec_decode(bfd_session_info___brec, entry->data, &record), 0);
      found.push_back(entry->name + " " + std::to_string(record.State));
    }
    ledger_datalist_free(page);
    return found;
  };
  const std::string longest(39, 'n');
  ASSERT_EQ(configure(longest), 0);
  ASSERT_EQ(commit(interface_track("i", "Gi1")), 0);
  const std::string up = " " + std::to_string(bfd_state_up);
  EXPECT_THAT(sessions(), testing::UnorderedElementsAre("peer-b" + up, longest + up));
}

TEST_F(bfd_oper, the_list_of_sessions_fails_without_memory) {
  ledger_dpv_datalist_request request{""};
  int answer = 0;
  {
    const alloc_faults none(0, alloc_fault_mode::onward);
    answer = ot_bfd_session_datalist(&request);
  }
  EXPECT_EQ(answer, ledger_provider_failure);
  EXPECT_EQ(request.handle, nullptr);
}

TEST_F(bfd_oper, in_the_table) {
  const std::string table = shown("all-tracks");
  EXPECT_THAT(table, HasSubstr("\npeer-b"));
  EXPECT_THAT(table, HasSubstr("BFD Session"));
  EXPECT_THAT(table, HasSubstr("reachability"));
  EXPECT_THAT(table, HasSubstr("Up"));
}

}  // namespace
}  // namespace ot::test
