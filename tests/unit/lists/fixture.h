// The service on the in-memory router, configured through the ledger as an operator's tool does it:
// interfaces with tracks on them, and lists over tracks.
#pragma once

#include <chrono>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ledger_config.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "state/timers.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {

struct member {
  std::string name;
  std::uint32_t value = 0;  // "not" or weight
};

inline std::string list_item(const std::string& track, int type, const std::string& item) {
  return track_path(track, "type/list/0x" + std::to_string(type) + "/" + item);
}

inline std::string member_item(const std::string& track, int type, const std::string& name) {
  return list_item(track, type, "object/" + name + "/a");
}

inline std::string limits_item(const std::string& track, int type, const std::string& up) {
  return list_item(track, type, "thld_limits/val_up/" + up + "/val_dn");
}

// A change as the ledger hands it to the functions of a list's items. What they do without an old
// value or with missing path fields is up to the ledger's caller; they are called as it would.
struct direct_change {
  ledger_path_field fields[3];
  std::size_t count = 3;
  ledger_value old_value;
  ledger_value new_value;
  ledger_change change;

  // `last`: the member's name, or null for limits, whose up limit is `up` then.
  direct_change(std::uint32_t event, const char* track, std::uint32_t type, const char* last,
                std::uint32_t value, std::uint32_t up = 0)
      : fields{{track, 0}, {"0x", type}, {last == nullptr ? "0x" : last, up}} {
    EXPECT_EQ(ledger_value_assign(new_value, ledger_kind::u32, bytes_of_numbers({value})), 0);
    change.event = event;
    change.new_value = &new_value;
  }
  direct_change& from(std::uint32_t value) {
    EXPECT_EQ(ledger_value_assign(old_value, ledger_kind::u32, bytes_of_numbers({value})), 0);
    change.old_value = &old_value;
    return *this;
  }
  // Nothing is there afterwards.
  direct_change& to_nothing() {
    change.new_value = nullptr;
    return *this;
  }
  const ledger_change& get() {
    change.fields = std::span(fields, count);
    return change;
  }
};

class list_fixture : public running_service {
 protected:
  void apply(const std::vector<ledger_proposal>& changes) { ASSERT_EQ(commit(changes), 0); }

  // A track on an interface of the same name, which is up or down.
  void object(const std::string& name, bool up) {
    field::interface_added(name, up);
    apply(interface_track(name, name));
    settle();
  }
  void list(const std::string& name, int type, const std::vector<member>& members) {
    std::vector<ledger_proposal> changes{set_number(track_path(name, "a"), 1),
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

  track_state state(const std::string& name) { return track(name).state; }
  track_state source(const std::string& name) { return track(name).source_state; }
  std::uint32_t publications(const std::string& name) { return track(name).state_change_counter; }

  // A list's members with their values, in list order: "c=1 b=0".
  std::string members(const std::string& name) {
    std::string text;
    for (const list_member* one = track(name).object.list.members; one != nullptr;
         one = one->next) {
      text += (text.empty() ? "" : " ") + std::string(one->name.c_str()) + "=" +
              std::to_string(one->value);
    }
    return text;
  }
};

}  // namespace ot::test
