// Which interfaces name a track: read from their configuration once, then kept up to date.
#include "oper/records/tracking_interfaces.h"

#include "platform/ledger_status.h"
#include "platform/memory/alloc_faults.h"
#include "tests/unit/oper/records/tracks.h"

namespace ot::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class tracking_interfaces : public record_tracks {
 protected:
  lines of(const std::string& track) {
    lines found;
    status = visit_tracking_interfaces(
        track,
        [](void* context, std::string_view interface) {
          const alloc_faults_paused pause;
          static_cast<lines*>(context)->emplace_back(interface);
          return status_ok;
        },
        &found);
    return found;
  }

  // As an earlier run of the service left it.
  static void put(const std::string& path, ledger_kind kind, std::string_view value) {
    const auto bytes = bytes_of(value);
    ledger_control_put("/cfg/if/act/" + path, kind, bytes);
    forget_tracking_interfaces();
  }
};

TEST_F(tracking_interfaces, are_found_in_path_order_and_once_each) {
  EXPECT_THAT(of("t"), IsEmpty());
  ASSERT_EQ(commit({follows("eth1", "service-vrrp-1", "t"), follows("eth0", "service-vrrp-2", "t"),
                    follows("eth0", "service-vrrp-1", "t"), follows("eth2", "service-x", "other"),
                    follows("eth3", "service-x", "T")}),
            0);
  EXPECT_THAT(of("t"), ElementsAre("eth0", "eth1"));
  EXPECT_THAT(of("other"), ElementsAre("eth2"));
  EXPECT_THAT(of("absent"), IsEmpty());
  EXPECT_THAT(of("eth0"), IsEmpty());
}

TEST_F(tracking_interfaces, follow_the_configuration) {
  ASSERT_EQ(commit({follows("eth0", "service-a", "t")}), 0);
  EXPECT_THAT(of("t"), ElementsAre("eth0"));
  ASSERT_EQ(commit({follows("eth0", "service-a", "u"), follows("eth1", "service-a", "t")}), 0);
  EXPECT_THAT(of("t"), ElementsAre("eth1"));
  EXPECT_THAT(of("u"), ElementsAre("eth0"));
  ASSERT_EQ(commit({remove_item("/cfg/if/act/eth1/service-a/track_name")}), 0);
  EXPECT_THAT(of("t"), IsEmpty());
}

TEST_F(tracking_interfaces, only_services_count) {
  ASSERT_EQ(commit({follows("eth0", "serviceless", "t"), follows("eth1", "service-", "t")}), 0);
  EXPECT_THAT(of("t"), ElementsAre("eth1"));
}

TEST_F(tracking_interfaces, of_a_long_name_are_found_by_all_of_it) {
  const std::string name = std::string(32, 'n') + "1234567";
  ASSERT_EQ(commit({follows("eth0", "service-a", name)}), 0);
  EXPECT_THAT(of(name), ElementsAre("eth0"));
  const ot_track& made = add(name, track_type::none);
  EXPECT_EQ(made.name.view(), name);
  EXPECT_EQ(detail(name)->TrackingInteraces->InterfaceName.view(), "eth0");
}

TEST_F(tracking_interfaces, are_read_when_the_service_starts_and_then_follow_the_commits) {
  put("eth0/service-a/track_name", ledger_kind::text, "t");
  ASSERT_EQ(restart(), 0);
  // Nothing reads the configuration any more: the failure is not met.
  ledger_control_fail_next(ledger_operation::walk, ledger_storage_failure);
  EXPECT_THAT(of("t"), ElementsAre("eth0"));
  ASSERT_EQ(commit({follows("eth2", "service-a", "t"), follows("eth0", "service-a", "u")}), 0);
  EXPECT_THAT(of("t"), ElementsAre("eth2"));
  EXPECT_THAT(of("u"), ElementsAre("eth0"));
  forget_tracking_interfaces();
  EXPECT_THAT(of("t"), IsEmpty());
  EXPECT_EQ(status, 0);
  EXPECT_THAT(of("t"), ElementsAre("eth2")) << "a failed reading is not kept";
}

TEST_F(tracking_interfaces, are_right_after_a_commit_without_memory_for_them) {
  ASSERT_EQ(commit({follows("eth0", "service-a", "t")}), 0);
  const std::vector<ledger_proposal> changes[] = {
      {follows("eth0", "service-a", "u"), follows("eth1", "service-long-enough-for-the-heap", "t")},
      {follows("eth0", "service-a", "t"),
       follows("eth1", "service-long-enough-for-the-heap", "t")}};
  const lines wanted[] = {{"eth1"}, {"eth0", "eth1"}};
  std::size_t which = 0;
  const auto runs = for_each_failing_allocation(
      [&] { status = ledger_commit(ledger_get_default_conn(), changes[which], nullptr); },
      [&](std::uint64_t k, bool) {
        EXPECT_EQ(status, 0);
        EXPECT_EQ(of("t"), wanted[which]) << k;
        EXPECT_THAT(of("u"), testing::SizeIs(1 - which));
        which = 1 - which;
      });
  EXPECT_GT(runs, 1U);
}

TEST_F(tracking_interfaces, of_texts_that_cannot_be_names_are_left_out) {
  const std::string name(39, 'n');
  ASSERT_EQ(commit({follows("eth0", "service-a", name), follows("eth1", "service-a", name + "n")}),
            0);
  EXPECT_THAT(of(name), ElementsAre("eth0"));
  EXPECT_THAT(of(name + "n"), IsEmpty());
}

TEST_F(tracking_interfaces, trace_what_they_cannot_read) {
  put("eth0/service-a/track_name", ledger_kind::u32, "1234");
  put("eth1/service-a/track_name", ledger_kind::text, "t");
  trace();
  EXPECT_THAT(of("t"), ElementsAre("eth1"));
  EXPECT_THAT(field::take_traces(), Contains("(ot_fill_intf_tracking_info) invalid datatype"));
  forget_tracking_interfaces();
  ledger_control_fail_next(ledger_operation::walk, ledger_storage_failure);
  EXPECT_THAT(of("t"), IsEmpty());
  EXPECT_EQ(status, 0);
  EXPECT_THAT(field::take_traces(),
              Contains("(ot_fill_intf_tracking_info) : ledger path not found for service"));
}

TEST_F(tracking_interfaces, trace_an_item_that_names_no_interface) {
  put("/service-a/track_name", ledger_kind::text, "t");
  trace();
  EXPECT_THAT(of("t"), IsEmpty());
  EXPECT_EQ(status, 0);
  EXPECT_THAT(field::take_traces(), Contains("(ot_fill_intf_tracking_info) failed to get interface "
                                             "for item /service-a/track_name"));
}

// What the index cannot hold is found by walking, with the same answer.
TEST_F(tracking_interfaces, are_found_without_memory_for_an_index) {
  ASSERT_EQ(commit({follows("eth1", "service-b", "t"), follows("eth1", "service-a", "t"),
                    follows("eth0", "service-a", "t"), follows("eth2", "service-a", "u")}),
            0);
  lines found;
  forget_tracking_interfaces();
  const auto runs = for_each_failing_allocation([&] { found = of("t"); },
                                                [&](std::uint64_t k, bool) {
                                                  EXPECT_EQ(status, 0);
                                                  EXPECT_THAT(found, ElementsAre("eth0", "eth1"))
                                                      << "allocation " << k;
                                                  forget_tracking_interfaces();
                                                });
  EXPECT_GT(runs, 1U);
  forget_tracking_interfaces();
  {
    const alloc_faults none(0, alloc_fault_mode::onward);
    found = of("t");
  }
  EXPECT_THAT(found, ElementsAre("eth0", "eth1"));
}

TEST_F(tracking_interfaces, of_57000_services_are_read_once) {
  constexpr int services = 57'000;
  for (int number = 0; number < services; ++number) {
    const auto track = bytes_of("t" + std::to_string(number % 1000));
    ledger_control_put(
        "/cfg/if/act/eth" + std::to_string(100'000 + number) + "/service-a/track_name",
        ledger_kind::text, track);
  }
  ASSERT_EQ(restart(), 0);
  ledger_control_fail_next(ledger_operation::walk, ledger_storage_failure);
  for (int number = 0; number < 1000; ++number) {
    ASSERT_THAT(of("t" + std::to_string(number)), testing::SizeIs(services / 1000));
  }
  EXPECT_THAT(of("t999"), Contains("eth156999"));
}

}  // namespace
}  // namespace ot::test
