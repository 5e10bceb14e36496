// The configuration of lists: their member items, and what boolean and threshold lists do alike
// when one changes. What differs between them is one constant of each type here. Main thread.
#pragma once

#include <cstdint>

#include "core/track.h"
#include "platform/ledger_config.h"

namespace ot {

// Verifier of type/list/#/object/*/a: refuses the list itself as its member, letter by letter.
int object_tracking_type_list_object_verify(const ledger_change& change, ledger_verdict& verdict);

// Apply function of the same: 22 for list type 0; types that are no lists are ignored.
int object_tracking_type_list_object_apply(const ledger_change& change);

// Formats get the apply function's name first; null where a kind traces nothing.
struct list_kind {
  const char* apply_name;
  const char* create_item;   // apply name, track, type, object, value
  const char* set_item;      // the same
  const char* create_event;  // apply name
  const char* set_event;
  const char* unchanged;
  const char* removing;
  const char* adding;
  const char* create_failed;  // apply name, error text
  const char* set_failed;     // apply name, error text
  bool traces_deleted_values;
  // Adds the member, making the track when need be. 0 or 12.
  int (*create)(const char* name, track_type type, const char* object, std::uint32_t value);
  void (*remove)(const char* name, const char* object);
};

// Applies one member item: create adds, set of another value moves the member to the head, delete
// removes; each that changes something requests a recalculation. 0, 22 without a path field, 12.
int apply_list_member(const list_kind& kind, const ledger_change& change);

// The names under which the kinds trace the making of a list track.
struct list_creation {
  const char* create_name;
  const char* add_failed;  // format: create name
  int (*add)(ot_track& track, const char* object, std::uint32_t value);
};

// Makes the track a list of that type, creating it when need be, and adds the member unless
// `object` is null. 0 or 12.
int create_list_track(const list_creation& kind, const char* name, track_type type,
                      const char* object, std::uint32_t value);

}  // namespace ot
