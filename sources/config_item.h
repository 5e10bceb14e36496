// Applying a source's configuration item: the dispatch by event, written once. What a kind does for
// each event and how it traces that is one row. Main thread.
#pragma once

#include <optional>

#include "core/debug.h"
#include "platform/ledger_config.h"
#include "platform/status.h"
#include "state/track_record.h"

namespace ot {

// A change with its values read; nothing where there is none, or none that can be read.
template <typename Value>
struct item_change {
  const ledger_change& change;
  std::optional<Value> before;
  std::optional<Value> after;

  // The change must have its first field.
  [[nodiscard]] const char* track() const noexcept { return change.fields[0].text; }
};

template <typename Item>
struct item_row {
  const char* apply_name;
  int (*create)(Item& item);
  int (*set)(Item& item);
  int (*remove)(Item& item);
  const char* event_format = nullptr;  // apply name, event; null: not traced
  ot_debug_index event_flag = ot_debug_detail;
};

// Runs the first of create, set and delete that the event names. Its result; 0 for none.
template <typename Item>
int apply_item(const item_row<Item>& row, Item& item) {
  const struct {
    std::uint32_t bit;
    const char* text;
    int (*run)(Item& item);
  } events[] = {
      {ledger_event_create, "CREATE", row.create},
      {ledger_event_set, "SET", row.set},
      {ledger_event_delete, "DELETE", row.remove},
  };
  for (const auto& event : events) {
    if ((item.change.event & event.bit) != 0) {
      if (row.event_format != nullptr) {
        OT_TRACE(row.event_flag, row.event_format, row.apply_name, event.text);
      }
      return event.run(item);
    }
  }
  return status_ok;
}

// A set: nothing for the same value (traced unless `apply_name` is null), else what was there is
// removed and what is there now is created. A set that brings nothing only removes.
template <typename Item>
int replace_item(Item& item, const char* apply_name, int (*remove)(Item& item),
                 int (*create)(Item& item)) {
  if (item.before.has_value()) {
    if (item.after.has_value() && *item.before == *item.after) {
      if (apply_name != nullptr) {
        OT_TRACE_DETAIL("(%s) config not changed, do nothing", apply_name);
      }
      return status_ok;
    }
    const int status = remove(item);
    if (status != status_ok) {
      return status;
    }
  }
  return item.after.has_value() ? create(item) : status_ok;
}

// Remembers the type number that the item's path carries in its second field.
inline void remember_type(const ledger_change& change) noexcept {
  if (const ledger_path_field* type = change.field(1)) {
    set_configured_type(change.fields[0].text, type->number);
  }
}

}  // namespace ot
