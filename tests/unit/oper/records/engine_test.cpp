// The operational record of the services that tracks stand on, as a client of the ledger reads it.
#include <memory>

#include "core/connections.h"
#include "oper/records/engine.h"
#include "platform/ledger_status.h"
#include "platform/memory/alloc_faults.h"
#include "tests/unit/sources/bfd/fixture.h"

namespace ot::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

constexpr std::int64_t start_time = 1'700'000'000;

class engine_info : public service_fixture {
 protected:
  void SetUp() override {
    field::set_wall_clock(start_time);
    field::probe_package_removed();
    ASSERT_EQ(start(), 0);
  }
  // Calls visit(record) for the chain of records.
  template <typename Visit>
  static void with_records(Visit visit) {
    ledger_value value;
    EXPECT_EQ(
        ledger_item_get(ledger_get_default_conn(), "oper/object_tracking/gl/engine/all", &value),
        0);
    engine_info__ record{};
    EXPECT_EQ(brec_decode(engine_info___brec, value.bytes(), &record), 0);
    visit(record);
    brec_release(engine_info___brec, &record);
  }
  // "bfd 0 17 2": service, connected, seconds since the start of the test, pending.
  static text_lines read() {
    text_lines lines;
    with_records([&lines](const engine_info__& first) {
      for (const engine_info__* each = &first; each != nullptr; each = each->next) {
        lines.push_back(std::string(each->Service.view()) + (each->Connected ? " 1 " : " 0 ") +
                        std::to_string(static_cast<std::int64_t>(each->Since) - start_time) + " " +
                        std::to_string(each->Pending));
      }
    });
    return lines;
  }
  static std::string detail_of_bfd() {
    std::string detail;
    with_records([&detail](const engine_info__& first) { detail = first.Detail.view(); });
    return detail;
  }
};

TEST_F(engine_info, reports_what_is_there_at_the_start) {
  EXPECT_THAT(read(), ElementsAre("bfd 0 0 0", "probe 0 0 0", "fib 1 0 0", "interfaces 1 0 0"));
}

TEST_F(engine_info, reports_when_each_connection_changed) {
  field::advance(10s);
  field::bfd_engine_back();
  field::run_pending();
  field::advance(10s);
  field::fib_gone();
  field::run_pending();
  field::advance(10s);
  EXPECT_THAT(read(), ElementsAre("bfd 1 10 0", "probe 0 0 0", "fib 0 20 0", "interfaces 1 0 0"));
  field::fib_back();
  field::bfd_engine_away();
  field::run_pending();
  EXPECT_THAT(read(), ElementsAre("bfd 0 30 0", "probe 0 0 0", "fib 1 30 0", "interfaces 1 0 0"));
}

TEST_F(engine_info, tells_which_bfd_engine_it_is_and_why) {
  field::bfd_engine_back();
  field::bfd_engine_is({.running = true,
                        .name = fixed_text<48>{"FRR 8.4.4"},
                        .reason = fixed_text<160>{"bfdd runs here"},
                        .since = start_time,
                        .discarded = 0});
  EXPECT_EQ(detail_of_bfd(), "FRR 8.4.4 (bfdd runs here)");
}

TEST_F(engine_info, counts_the_packets_that_the_bfd_engine_has_discarded) {
  std::vector<std::uint64_t> discarded;
  const auto read_discarded = [&discarded](const engine_info__& first) {
    discarded.clear();
    for (const engine_info__* each = &first; each != nullptr; each = each->next) {
      discarded.push_back(each->Discarded);
    }
  };
  with_records(read_discarded);
  EXPECT_THAT(discarded, ElementsAre(0U, 0U, 0U, 0U));
  bfdc_engine_status engine;
  engine.discarded = (std::uint64_t{1} << 32) + 3;
  field::bfd_engine_is(engine);
  with_records(read_discarded);
  EXPECT_THAT(discarded, ElementsAre(engine.discarded, 0U, 0U, 0U));
}

TEST_F(engine_info, a_connection_keeps_its_time) {
  field::bfd_engine_back();
  field::run_pending();
  field::advance(5s);
  EXPECT_EQ(read().at(0), "bfd 1 0 0");
}

TEST_F(engine_info, reports_an_interface_manager_that_was_lost_and_found) {
  field::advance(7s);
  field::interface_manager_gone();
  field::advance(1s);
  EXPECT_EQ(read().at(3).substr(0, 13), "interfaces 0 ");
  field::interface_manager_back();
  field::advance(60s);
  EXPECT_EQ(read().at(3).substr(0, 13), "interfaces 1 ");
}

TEST_F(engine_info, counts_what_waits) {
  field::fib_gone();
  field::run_pending();
  ASSERT_EQ(commit({set_tuple(track_path("r", "type/route/0x2/info/ip_address"),
                              {ip("10.1.0.0"), ip("255.255.0.0")})}),
            0);
  ASSERT_EQ(commit(interface_track("i", "Gi7")), 0);
  field::bfd_client_connects(false);
  field::run_pending();
  for (const char* name : {"a", "b"}) {
    ASSERT_EQ(commit({set_tuple(track_path(name,
                                           "type/bfdprb/0x9/rate/0x32/debounce_count/0x3/"
                                           "Interface/Gi1/destaddress"),
                                {ip("10.0.0.2")})}),
              0);
  }
  EXPECT_THAT(read(), ElementsAre("bfd 0 0 2", "probe 0 0 0", "fib 0 0 1", "interfaces 1 0 1"));
  field::interface_added("Gi7");
  field::fib_back();
  field::bfd_engine_back();
  field::bfd_client_connects(true);
  field::run_pending();
  EXPECT_THAT(read(), ElementsAre("bfd 1 0 0", "probe 0 0 0", "fib 1 0 0", "interfaces 1 0 0"));
}

TEST_F(engine_info, sees_the_probe_service_when_it_is_asked_and_counts_what_has_no_result) {
  field::advance(3s);
  field::probe_package_installed();
  EXPECT_EQ(read().at(1), "probe 1 3 0");
  ASSERT_EQ(commit({set_number(track_path("p", "type/prb/0x5/op_id"), 7)}), 0);
  field::advance(3s);
  EXPECT_EQ(read().at(1), "probe 1 3 1");
  field::probe_result(7, 1);
  field::advance(2s);
  EXPECT_EQ(read().at(1), "probe 1 3 0");
}

TEST_F(engine_info, an_interface_that_no_track_follows_any_more_is_not_waited_for) {
  field::interface_added("Gi7");
  ASSERT_EQ(commit(interface_track("i", "Gi7")), 0);
  ASSERT_EQ(delete_track("i"), 0);
  field::interface_removed("Gi7");
  field::run_pending();
  EXPECT_EQ(read().at(3), "interfaces 1 0 0");
}

TEST_F(engine_info, a_probe_that_fails_has_a_result) {
  field::probe_package_installed();
  ASSERT_EQ(commit({set_number(track_path("p", "type/prb/0x5/op_id"), 7)}), 0);
  field::probe_result(7, 2);
  field::advance(2s);
  ASSERT_EQ(track("p").source_state, track_state::down);
  EXPECT_EQ(read().at(1), "probe 1 0 0");
}

TEST_F(engine_info, sees_the_probe_service_end_and_start_again) {
  field::probe_package_installed();
  ASSERT_EQ(read().at(1), "probe 1 0 0");
  field::advance(3s);
  field::probe_service_gone();
  EXPECT_EQ(read().at(1), "probe 0 3 0");
  field::advance(1s);
  field::probe_service_back();
  EXPECT_EQ(read().at(1), "probe 1 4 0");
}

// The poll of a track notices it too, at its own time.
TEST_F(engine_info, a_statistics_table_that_goes_is_noticed_by_the_poll) {
  field::probe_package_installed();
  ASSERT_EQ(commit({set_number(track_path("p", "type/prb/0x5/op_id"), 7)}), 0);
  ASSERT_EQ(read().at(1), "probe 1 0 1");
  field::probe_table_gone();
  field::advance(2s);
  EXPECT_FALSE(connection_of(router_service::probe_service).connected);
  EXPECT_EQ(connection_of(router_service::probe_service).since, start_time + 2);
}

TEST_F(engine_info, reports_the_longest_turn_of_the_loop) {
  const auto read_loop = [] {
    ledger_value value;
    EXPECT_EQ(
        ledger_item_get(ledger_get_default_conn(), "oper/object_tracking/gl/engine/loop", &value),
        0);
    loop_info__ record{};
    EXPECT_EQ(brec_decode(loop_info___brec, value.bytes(), &record), 0);
    return record;
  };
  EXPECT_EQ(read_loop().LongestAt, 0U);
  field::advance(5s);
  field::turn_took(manager, 1234us);
  field::advance(5s);
  field::turn_took(manager, 1000us);
  EXPECT_EQ(read_loop().LongestTurn, 1234U);
  EXPECT_EQ(static_cast<std::int64_t>(read_loop().LongestAt), start_time + 5);
}

TEST_F(engine_info, counts_what_was_dropped_of_the_log) {
  const auto read_dropped = [] {
    ledger_value value;
    EXPECT_EQ(
        ledger_item_get(ledger_get_default_conn(), "oper/object_tracking/gl/engine/log", &value),
        0);
    log_info__ record{7};
    EXPECT_EQ(brec_decode(log_info___brec, value.bytes(), &record), 0);
    return record.Dropped;
  };
  EXPECT_EQ(read_dropped(), 0U);
  field::messages_dropped(3);
  field::messages_dropped(std::uint64_t{1} << 32);
  EXPECT_EQ(read_dropped(), (std::uint64_t{1} << 32) + 3);
}

TEST_F(engine_info, knows_no_other_key) {
  ledger_value value;
  for (const char* key : {"bfd", "ALL", "LOOP", "LOG", "all-tracks"}) {
    EXPECT_EQ(
        ledger_item_get(ledger_get_default_conn(),
                        (std::string("oper/object_tracking/gl/engine/") + key).c_str(), &value),
        ledger_no_data)
        << key;
  }
  const ledger_dpv_request none;
  ledger_dpv_reply reply;
  EXPECT_EQ(ot_dpv_engine_get(&reply, &none), ledger_no_data);
}

TEST_F(engine_info, without_memory_there_is_no_answer) {
  const ledger_dpv_request request{"all"};
  int status = 0;
  const std::uint64_t failures = for_each_failing_allocation(
      [&] {
        ledger_dpv_reply reply;
        status = ot_dpv_engine_get(&reply, &request);
        const std::unique_ptr<std::byte[]> owner(reply.buffer);
      },
      [&](std::uint64_t k, bool hit) { EXPECT_EQ(status, hit ? ledger_no_data : 0) << k; }, 100);
  EXPECT_GE(failures, 1U);
  EXPECT_LT(failures, 100U);
}

TEST_F(engine_info, the_type_is_registered_once) {
  EXPECT_EQ(ot_engine_record_register(), duplicate_key);
  EXPECT_EQ(ot_engine_provider_register(manager), duplicate_key);
}

}  // namespace
}  // namespace ot::test
