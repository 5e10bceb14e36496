// Tracks that come and go for years: however often a track is made and deleted, the process holds
// afterwards exactly the memory that it held before.
#include <array>
#include <chrono>
#include <span>
#include <string_view>

#include "config/delays.h"
#include "config/lifecycle.h"
#include "core/track.h"
#include "platform/ledger_config.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "sources/interface/track.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

#ifdef OT_SOAK
constexpr unsigned cycles = 1'000'000;
#else
constexpr unsigned cycles = 20'000;
#endif
constexpr unsigned batch = 1'000;
constexpr std::uint32_t delay_seconds = 1;

const std::array<ledger_path_field, 2> churn_fields{ledger_path_field{"churn", 0},
                                                    ledger_path_field{"0x1", 1}};

class churn : public running_service {
 protected:
  void SetUp() override {
    running_service::SetUp();
    field::interface_added("eth0");
    const std::string_view name = "eth0";
    ASSERT_EQ(ledger_value_assign(interface_, ledger_kind::text, std::as_bytes(std::span{name})),
              0);
    ASSERT_EQ(
        ledger_value_assign(delay_, ledger_kind::u32, std::as_bytes(std::span{&delay_seconds, 1})),
        0);
    settle();
  }

  static void apply(ledger_apply_fn function, ledger_event event, const ledger_value* value) {
    ledger_change change;
    change.event = event;
    change.fields = churn_fields;
    (event == ledger_event_delete ? change.old_value : change.new_value) = value;
    ASSERT_EQ(function(change), 0);
  }

  void make_track() {
    apply(object_tracking_type_interface_apply, ledger_event_create, &interface_);
  }
  void make_delays() {
    apply(object_tracking_delay_up_apply, ledger_event_create, &delay_);
    apply(object_tracking_delay_down_apply, ledger_event_create, &delay_);
  }
  void delete_delays() {
    apply(object_tracking_delay_up_apply, ledger_event_delete, &delay_);
    apply(object_tracking_delay_down_apply, ledger_event_delete, &delay_);
  }
  void delete_track() {
    apply(object_tracking_type_interface_apply, ledger_event_delete, &interface_);
    apply(object_tracking_track_apply, ledger_event_delete, nullptr);
    ASSERT_EQ(hash_db_count(tracks_table), 0U);
  }

  // Everything that is due has happened: delays have run out, notices have left.
  void settle() {
    field::advance(std::chrono::seconds(2 * delay_seconds));
    take_notifications();
    forget_output();
  }

  // Runs `cycle` `count` times; what is held afterwards is what was held after the first batch.
  template <typename Cycle>
  void churns(unsigned count, Cycle&& cycle) {
    live_allocations before;
    for (unsigned done = 0; done < count; done += batch) {
      for (unsigned i = 0; i < batch; ++i) {
        cycle();
        ASSERT_FALSE(HasFatalFailure());
      }
      settle();
      if (done == 0) {
        before = count_live_allocations();
      }
    }
    const live_allocations after = count_live_allocations();
    EXPECT_EQ(after.count, before.count);
    // The allocator rounds some blocks up by a little more, depending on what the other thread did.
    EXPECT_NEAR(static_cast<double>(after.bytes), static_cast<double>(before.bytes), 256);
  }

 private:
  ledger_value interface_;
  ledger_value delay_;
};

TEST_F(churn, tracks_without_delays) {
  churns(cycles, [this] {
    make_track();
    delete_track();
  });
}

TEST_F(churn, tracks_with_delays) {
  churns(cycles, [this] {
    make_track();
    make_delays();
    delete_delays();
    delete_track();
  });
}

// The delay of a deleted track still runs out, which is when it lets go of its memory.
TEST_F(churn, tracks_deleted_while_their_delay_runs) {
  churns(cycles / 10, [this] {
    make_track();
    make_delays();
    field::link_down("eth0");
    field::run_pending();
    delete_track();
    field::link_up("eth0");
    field::run_pending();
  });
}

}  // namespace
}  // namespace ot::test
