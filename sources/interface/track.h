// Tracks of type interface.
//
// An interface counts as up when its line is up and it is not a standby member of a bond. Both come
// as bulk notifications of the interface manager, each without the other if need be; the entry
// keeps what was reported last, so that either can be judged with the other, and what was made of
// them, so that only changes are pushed. Interfaces are known by name: a track may name one that
// does not exist yet. Its entry has handle 0, its track is unknown, and the first notification of
// that name finds it.
//
//   client         the connection, look-ups by name and handle, the callback
//   notifications  from bulk notifications to entries
//   table          the interfaces, those that tracks follow and those that were reported
//   track, config  tying and untying, and what asks for it
//
// An entry stays while the interface manager knows the interface, followed or not; else it goes
// with its last track. The connection may come and go: entries stay, and the notifications after a
// reconnection put them right. The client asks for names, handles and states; it changes nothing on
// the router. Main thread.
#pragma once

#include <cstdint>

#include "platform/ledger_config.h"
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

// Apply function of type/interface/#/info/interface. 0, 22 without a track name, or the tie's
// error.
int object_tracking_type_interface_apply(const ledger_change& change);

}  // namespace ot
