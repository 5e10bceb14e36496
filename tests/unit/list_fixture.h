// The service on the in-memory router, configured through the ledger as an operator's tool does it:
// interfaces with tracks on them, and lists over tracks.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "core/debug.h"
#include "core/main.h"
#include "core/track.h"
#include "platform/ledger_commit.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "state/timers.h"
#include "tests/support/ledger_proposals.h"

namespace ot::test {

struct member {
  std::string name;
  std::uint32_t value = 0;  // "not" or weight
};

inline std::string track_item(std::string_view track, std::string_view item) {
  return "/cfg/gl/object_tracking/track/" + std::string(track) + "/" + std::string(item);
}

inline std::string list_item(std::string_view track, int type, std::string_view item) {
  return track_item(track, "type/list/0x" + std::to_string(type) + "/" + std::string(item));
}

inline std::string member_item(std::string_view track, int type, std::string_view name) {
  return list_item(track, type, "object/" + std::string(name) + "/a");
}

inline std::string limits_item(std::string_view track, int type, std::string_view up) {
  return list_item(track, type, "thld_limits/val_up/" + std::string(up) + "/val_dn");
}

class ListFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    field::reset();
    ledger_control_reset();
    start(1);
  }
  void TearDown() override { stop(); }

  void start(std::uint32_t start_count) {
    ASSERT_EQ(evm_create(&manager_), 0);
    ASSERT_EQ(ot_start(manager_, start_count), 0);
    field::run_pending();
  }
  void stop() {
    for (dbg_flag& flag : ot_debug) flag.enabled = 0;
    ot_stop();
    evm_destroy(manager_);
    manager_ = nullptr;
  }

  int commit(const std::vector<ledger_proposal>& changes) {
    refusals_.clear();
    return ledger_commit(ledger_get_default_conn(), changes, &refusals_);
  }
  void apply(const std::vector<ledger_proposal>& changes) { ASSERT_EQ(commit(changes), 0); }

  // A track on an interface of the same name, which is up or down.
  void object(const std::string& name, bool up) {
    field::interface_added(name, up);
    apply({set_text(track_item(name, "type/interface/0x1/info/interface"), name)});
    settle();
  }
  void list(const std::string& name, int type, const std::vector<member>& members) {
    std::vector<ledger_proposal> changes{set_number(track_item(name, "a"), 1),
                                         set_number(list_item(name, type, "a"), 1)};
    for (const member& one : members) {
      changes.push_back(set_number(member_item(name, type, one.name), one.value));
    }
    apply(changes);
    settle();
  }
  void limits(const std::string& name, int type, const std::string& up, std::uint32_t down) {
    apply({set_number(limits_item(name, type, up), down)});
    settle();
  }

  // Long enough for calculations that follow one another, too short for a delay.
  void settle() { field::advance(std::chrono::milliseconds(200)); }

  // Whether a calculation is due within 20 ms.
  static bool calculation_requested() { return wtm_timer_leaf_running(tracks_calc_timer); }

  static const ot_track& record(const std::string& name) {
    const ot_track* track = hash_db_get_track_item(name.c_str());
    static const ot_track none;
    EXPECT_NE(track, nullptr) << name;
    return track == nullptr ? none : *track;
  }
  static track_state state(const std::string& name) { return record(name).state; }
  static track_state source(const std::string& name) { return record(name).source_state; }
  static std::uint32_t publications(const std::string& name) {
    return record(name).state_change_counter;
  }

  // A list's members with their values, in list order: "c=1 b=0".
  static std::string members(const std::string& name) {
    std::string text;
    for (const list_member* one = record(name).object.list.members; one != nullptr;
         one = one->next) {
      text += (text.empty() ? "" : " ") + std::string(one->name.c_str()) + "=" +
              std::to_string(one->value);
    }
    return text;
  }

  // Traces of both flags from here on.
  static void trace_all() {
    field::take_traces();
    ot_debug[ot_debug_detail].enabled = 1;
    ot_debug[ot_debug_error].enabled = 1;
  }

  evm* manager_ = nullptr;
  std::vector<ledger_refusal> refusals_;
};

}  // namespace ot::test
