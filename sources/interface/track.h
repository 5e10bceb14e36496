// Tracks of type interface: tying them to interfaces, and pushing an interface's state to the
// tracks that follow it. Interfaces are named, so one may be configured before it exists.
// Main thread.
#pragma once

#include <cstdint>

#include "sources/interface/table.h"

namespace ot {

// Ties the track, creating it when need be, to the interface and publishes its state. 0 or an error
// code.
int object_tracking_type_interface_create(const char* ifname, const char* name);

// Puts `node` into the interface's entry, or makes an entry with this handle and state. 0 or the
// table's error; the node stays the caller's then, and every interface entry is dropped.
int insert_track_to_interface_entry(const char* ifname, track_name_node* node,
                                    std::uint32_t ifhandle, std::uint32_t state) noexcept;

// Unties the track; it has no type afterwards. An up track becomes unknown first. An entry that no
// track follows goes, unless the interface manager knows the interface. 0 or an error code.
int delete_track_from_interface_entry(const char* ifname, const char* name);

// The same with the track's own interface. 0 when there is no such track.
int delete_track_from_interface_entry_by_track_name(const char* name);

// Stores the state and pushes it: IFM_STATE_UP sets every following track up, everything else down.
// Only changes are published.
void object_tracking_change_interface_state(interface_entry* entry, std::uint32_t new_state);

}  // namespace ot
