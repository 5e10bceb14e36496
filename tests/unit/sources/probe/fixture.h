// A running service that follows operations of the in-memory probe service.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "platform/ledger_config.h"
#include "platform/memory/controls.h"
#include "sources/probe/table.h"
#include "sources/probe/track.h"
#include "state/timers.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {

// A change of an item "type/prb/0x5/op_id" as its verifier and its apply function receive it.
class probe_change {
 public:
  probe_change(std::uint32_t event, const char* track, std::optional<std::uint32_t> from,
               std::optional<std::uint32_t> to)
      : fields_{{track, 0}, {"0x5", 5}} {
    change_.event = event;
    change_.fields = fields_;
    change_.old_value = assign(old_, from);
    change_.new_value = assign(new_, to);
  }
  probe_change(const probe_change&) = delete;
  probe_change& operator=(const probe_change&) = delete;

  operator const ledger_change&() const { return change_; }

 private:
  static const ledger_value* assign(ledger_value& value, std::optional<std::uint32_t> number) {
    if (!number) {
      return nullptr;
    }
    EXPECT_EQ(ledger_value_assign(value, ledger_kind::u32, bytes_of_numbers({*number})), 0);
    return &value;
  }

  ledger_path_field fields_[2];
  ledger_value old_;
  ledger_value new_;
  ledger_change change_;
};

class probe_service : public running_service {
 protected:
  static constexpr const char* infrastructure = "libqmon_infra.dll";
  static constexpr const char* component = "libqmon_infra_comp.dll";

  static std::string op_item(const std::string& track) {
    return track_path(track, "type/prb/0x5/op_id");
  }
  // Commits the item of the track; the commit's result.
  int set_op(const std::string& track, std::uint32_t op_id) {
    return commit({set_number(op_item(track), op_id)});
  }
  static int create(const char* track, std::int32_t op_id = 7) {
    return object_tracking_type_prb_create(track, op_id);
  }

  static prb_entry* entry(std::int32_t op_id = 7) { return hash_db_get_prb_item(op_id); }
  static text_lines followers(std::int32_t op_id = 7) {
    text_lines names;
    const prb_entry* found = entry(op_id);
    for (const auto* node = found == nullptr ? nullptr : found->tracks; node != nullptr;
         node = node->next) {
      names.emplace_back(node->name.view());
    }
    return names;
  }
  bool polled(const std::string& name) {
    wtm_leaf* leaf = track(name).poll_timer;
    return leaf != nullptr && wtm_timer_leaf_running(leaf);
  }

  static void let_pass(std::chrono::nanoseconds time) { field::advance(time); }
  static void next_poll() { let_pass(std::chrono::seconds{2}); }
};

}  // namespace ot::test
