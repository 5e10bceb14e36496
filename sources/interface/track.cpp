// The tie between tracks and interfaces. Tying maps a state that is not known to an unknown track;
// a pushed state knows only up and down.

#include "sources/interface/track.h"

#include <array>

#include "sources/interface/client.h"
#include "state/ledger_state.h"
#include "state/publication.h"
#include "state/track_record.h"

namespace ot {
namespace {

constexpr follower_row<interface_entry> followers = {hash_db_add_new_interface_item,
                                                     drop_all_interfaces};

// What the interface manager's states mean for a track that is being tied.
struct state_row {
  track_state state;
  const char* report;
};
constexpr std::array<state_row, 4> states = {{
    {track_state::unknown, "REPORTED: IFM_STATE_UNKNOWN"},
    {track_state::down, "REPORTED: IFM_STATE_DOWN"},
    {track_state::down, "REPORTED: IFM_STATE_DOWN"},
    {track_state::up, "REPORTED: IFM_STATE_UP"},
}};

const state_row& row_of(std::uint32_t ifm_state) noexcept {
  return states[ifm_state < states.size() ? ifm_state : ifm_state_unknown];
}

// An interface as a new tie finds it.
struct present_interface {
  std::uint32_t ifhandle = 0;
  std::uint32_t state = no_state_known;
};

// Leaves `ret` as it is when there is no entry.
void look_up_entry(const char* ifname, present_interface& ret) noexcept {
  if (const interface_entry* entry = hash_db_get_interface_item(ifname)) {
    ret.ifhandle = entry->ifhandle;
    ret.state = entry->effective_state;
  }
}

// From the table, else from the interface manager, which need not know the interface yet.
int find_interface(const char* ifname, const char* who, present_interface& ret) noexcept {
  look_up_entry(ifname, ret);
  if (ret.ifhandle != 0) {
    return status_ok;
  }
  if (ot_dpv_get_ifhandle(ifname, &ret.ifhandle) != status_ok) {
    ret = present_interface{};
    return status_ok;
  }
  const int status = ot_ifc_state_query(ret.ifhandle, 0, &ret.state);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : ot_ifc_state_query for ifhandle %dfailed - %s", who,
                   static_cast<int>(ret.ifhandle), err_string(status));
  }
  return status;
}

void set_object(ot_track& track, const char* ifname) noexcept {
  forget_object(track);
  track.type = track_type::interface;
  track.object.interface.name.assign(ifname);
}

// A record for a track whose type came before anything else of it.
int create_track(const char* ifname, const char* name, const present_interface& found,
                 const char* who) noexcept {
  OT_TRACE_DETAIL("(%s) : Create new entry for track: %s ", who, name);
  const state_row& row = row_of(found.state);
  ot_track track;
  int status = new_track_record(name, track_type::interface, row.state, who, &track);
  if (status != status_ok) {
    return status;
  }
  OT_TRACE_DETAIL("%s", row.report);
  set_object(track, ifname);
  track.state = row.state == track_state::unknown ? track_state::down : track_state::unknown;
  take_over_published_state(track);
  take_published_down_for_unknown(track);
  return add_track_record(track, who);
}

int adopt_track(ot_track& track, const char* ifname, const present_interface& found) noexcept {
  set_object(track, ifname);
  track.source_state = row_of(found.state).state;
  return status_ok;
}

// Forgets the interface, or the members of a track that has become a list since; what is left is a
// track without a type.
void clear_type(ot_track& track) noexcept {
  forget_object(track);
  track.type = track_type::none;
}

// Whether an entry that has lost its last track may go.
int drop_unused_entry(const interface_entry& entry, const char* ifname, const char* who) noexcept {
  if (entry.ifhandle != 0) {
    OT_TRACE_DETAIL("(%s) :no more tracks for interface %s - keeping in hash for registration", who,
                    ifname);
    return status_ok;
  }
  OT_TRACE_DETAIL("(%s) :no more tracks for interface %s - delete interface from hash and cleanup",
                  who, ifname);
  return hash_db_delete_interface_item(ifname);
}

int remove_from_entry(const char* ifname, const char* name, const char* who) noexcept {
  interface_entry* entry = hash_db_get_interface_item(ifname);
  if (entry == nullptr) {
    return status_ok;
  }
  OT_TRACE_DETAIL("(%s) :interface %s found in hash find track %s and delete it", who, ifname,
                  name);
  const bool removed = remove_track_name(entry->tracks, name);
  return removed && entry->tracks == nullptr ? drop_unused_entry(*entry, ifname, who) : status_ok;
}

}  // namespace

int object_tracking_type_interface_create(const char* ifname, const char* name) {
  OT_TRACE_ENTRY();
  present_interface found;
  int status = find_interface(ifname, __func__, found);
  if (status != status_ok) {
    return status;
  }
  track_name_node* node = new_track_name_node(name);
  if (node == nullptr) {
    OT_TRACE_ERROR("(%s) : malloc failed ", __func__);
    return no_memory;
  }
  ot_track* track = hash_db_get_track_item(name);
  status = track == nullptr ? create_track(ifname, name, found, __func__)
                            : adopt_track(*track, ifname, found);
  if (status == status_ok) {
    status = traced(__func__, "insert_track_to_interface_entry",
                    insert_track_to_interface_entry(ifname, node, found.ifhandle, found.state));
  }
  if (status != status_ok) {
    delete node;
    return status;
  }
  return object_tracking_set_track_state_in_ledger(name, row_of(found.state).state);
}

int insert_track_to_interface_entry(const char* ifname, track_name_node* node,
                                    std::uint32_t ifhandle, std::uint32_t state) noexcept {
  OT_TRACE_ENTRY();
  interface_entry entry;
  entry.ifname.assign(ifname);
  entry.ifhandle = ifhandle;
  entry.effective_state = state;
  entry.reported_state = state;
  return insert_follower(followers, __func__, node, hash_db_get_interface_item(ifname), entry);
}

int delete_track_from_interface_entry(const char* ifname, const char* name) {
  OT_TRACE_ENTRY();
  ot_track* track = hash_db_get_track_item(name);
  if (track == nullptr) {
    OT_TRACE_DETAIL("(%s) :track %s not found - nothing to delete", __func__, name);
    return status_ok;
  }
  int status = withdraw_up_state(*track);
  if (status != status_ok) {
    return status;
  }
  status = remove_from_entry(ifname, name, __func__);
  if (status == status_ok) {
    clear_type(*track);
  }
  return status;
}

int delete_track_from_interface_entry_by_track_name(const char* name) {
  OT_TRACE_ENTRY();
  const ot_track* track = hash_db_get_track_item(name);
  if (track == nullptr) {
    return status_ok;
  }
  const ifc_name ifname = track->object.interface.name;
  return delete_track_from_interface_entry(ifname.c_str(), name);
}

void object_tracking_change_interface_state(interface_entry* entry, std::uint32_t new_state) {
  OT_TRACE_ENTRY();
  entry->effective_state = new_state;
  set_following_tracks(entry->tracks,
                       new_state == ifm_state_up ? track_state::up : track_state::down, __func__);
}

}  // namespace ot
