// BFD tracks: a record that exists already, if only for its delays, is refused.

#include "sources/bfd/track.h"

#include "core/in_addr_text.h"
#include "platform/text_hash.h"
#include "sources/bfd/client.h"
#include "sources/interface/client.h"
#include "sources/probe/table.h"
#include "sources/waiting_queue.h"
#include "state/ledger_state.h"
#include "state/publication.h"
#include "state/track_record.h"

namespace ot {

std::uint32_t is_bfd_config_pending = 0;

namespace {

waiting_queue<bfd_cfg> bfd_cfg_queue;

constexpr int failed = -1;
constexpr const char* create_name = "object_tracking_type_bfdprb_create";
constexpr const char* entry_name = "ot_create_bfd_track_entry";

// The place of a failure in traces.
constexpr int trace_line = 1;

// Reports where a record could not become a track.
int trace_entry_failure(const char* who, int status) noexcept {
  OT_TRACE_ERROR("(%d: %s) : ot_create_bfd_track_entry failed::%s\n", trace_line, who,
                 err_string(status));
  return status;
}

int trace_no_track(const char* who) noexcept {
  OT_TRACE_ERROR("(%d: %s) : Track Lookup is NULL\n", trace_line, who);
  return failed;
}

// The session is asked for; that it could not be is traced, the track stays.
int request_session(const char* who, ot_track& track) {
  const int status = ot_bfd_create_single_session(track.name.c_str(), &track.object.bfd);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : object_tracking_set_track_state_in_ledger failed\n", who);
  }
  return status;
}

// No interface has such a number. One that is not there is known by a number made of its name: one
// for all would make sessions to one address over several of them the same.
std::uint32_t handle_of_absent(const char* ifname) noexcept {
  return text_hash(ifname) | 0x80000000U;
}

std::uint32_t handle_of(const char* ifname) noexcept {
  std::uint32_t ifhandle = 0;
  if (ot_dpv_get_ifhandle(ifname, &ifhandle) != status_ok) {
    OT_TRACE_ERROR("(%s)  Handle is undefined for if:: %s ", entry_name, ifname);
    return handle_of_absent(ifname);
  }
  return ifhandle;
}

int make_record(const bfd_cfg& cfg, std::uint32_t ifhandle, ot_track& ret) noexcept {
  const int status =
      new_track_record(cfg.name.c_str(), track_type::bfd, track_state::down, nullptr, &ret);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : calloc failed for track_entry with: %s\n", entry_name,
                   err_string(status));
    drop_all_tracks();
    return status;
  }
  ret.state = track_state::down;
  ret.configured_type = cfg.type_number;
  bfd_object& session = ret.object.bfd;
  session.ifhandle = ifhandle;
  session.destination = cfg.destaddress;
  session.rate = cfg.rate;
  session.debounce_count = cfg.debounce_count;
  session.interface.assign(cfg.interface.view());
  take_over_published_state(ret);
  return status_ok;
}

// On failure the probe table is dropped, as the system has always done.
constexpr follower_row<bfdprb_entry> followers = {
    .add = hash_db_add_new_bfdprb_item,
    .drop_all = drop_all_probes,
    .failed = "(%s) : hash_db_add_new_bfdprb_item failed  - %s",
    .found = "(%s) bfdprb lookup != NULL",
    .absent = {"(%s) Creating new bfdprb\n ", "calling hash_db_add_new_bfdprb_item "},
};

}  // namespace

int object_tracking_type_bfdprb_create(std::unique_ptr<bfd_cfg> cfg) {
  OT_TRACE_DETAIL("(%s) track %s:", create_name, cfg->name.c_str());
  if (is_ot_bfd_connection_up == 0) {
    is_bfd_config_pending = 1;
    OT_TRACE_DETAIL("(%s) Still not connected to BFD server\n", create_name);
    OT_TRACE_DETAIL("(%s) :Enqueueing: track %s, if: %s,  ip %s", create_name, cfg->name.c_str(),
                    cfg->interface.c_str(), in_addr_s(cfg->destaddress));
    bfd_cfg_queue.push(std::move(cfg));
    return status_ok;
  }
  ot_track* track = nullptr;
  const int status = ot_create_bfd_track_entry(*cfg, &track);
  if (status != status_ok) {
    return trace_entry_failure(create_name, status);
  }
  return track == nullptr ? trace_no_track(create_name) : request_session(create_name, *track);
}

int object_tracking_type_bfdprb_delete(const char* name) {
  OT_TRACE_ENTRY();
  if (is_bfd_config_pending == 1) {
    OT_TRACE_DETAIL("(%s) Still not connected to BFD server\n", __func__);
    return status_ok;
  }
  if (object_tracking_set_track_state_in_ledger(name, track_state::down) != status_ok) {
    OT_TRACE_ERROR("(%s) : object_tracking_set_track_state_in_ledger failed\n", __func__);
  }
  ot_track* track = hash_db_get_track_item(name);
  if (track == nullptr) {
    OT_TRACE_ERROR("(%s) : Falied to get track_item \n", __func__);
    return failed;
  }
  if (track->type != track_type::bfd) {
    return status_ok;  // its object is of another kind and holds no session
  }
  const int status = ot_bfd_delete_single_session(name, &track->object.bfd);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : ot_bfd_create_single_seccion failed\n", __func__);
  }
  return status;
}

int ot_create_bfd_track_entry(const bfd_cfg& cfg, ot_track** ret) {
  OT_TRACE_ENTRY();
  const char* name = cfg.name.c_str();
  *ret = hash_db_get_track_item(name);
  if (*ret != nullptr) {
    OT_TRACE_ERROR("(%s) :  Track %s already exists \n", __func__, name);
    return failed;
  }
  const bfdprb_key key{handle_of(cfg.interface.c_str()), ipv4_bfd_address(cfg.destaddress)};
  ot_track track;
  int status = make_record(cfg, key.ifhandle, track);
  if (status == status_ok) {
    status = add_track_record(track, __func__);
  }
  if (status != status_ok) {
    return status;
  }
  status = insert_track_to_bfdprb_entry(name, key, track_state::down);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : insert_track_to_bfdprb_entry failed\n", __func__);
    return status;
  }
  status = object_tracking_set_track_state_in_ledger(name, track_state::down);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : object_tracking_set_track_state_in_ledger failed\n", __func__);
    return status;
  }
  *ret = hash_db_get_track_item(name);
  return status_ok;
}

int insert_track_to_bfdprb_entry(const char* name, const bfdprb_key& key,
                                 track_state state) noexcept {
  OT_TRACE_ENTRY();
  track_name_node* node = new_track_name_node(name);
  if (node == nullptr) {
    OT_TRACE_ERROR("(%s) : calloc error for trck_name_item  - %s", __func__, err_string(no_memory));
    drop_all_bfd_sessions();
    return failed;
  }
  const bfdprb_entry fresh{nullptr, key.destination, static_cast<std::int32_t>(key.ifhandle),
                           static_cast<std::uint32_t>(state), 0};
  const int status = insert_follower(followers, __func__, node,
                                     hash_db_get_bfdprb_item(key.ifhandle, key.destination), fresh);
  if (status != status_ok) {
    delete node;
  }
  return status;
}

void object_tracking_change_bfdprb_state(const bfdprb_entry& entry) {
  const char* name = entry.tracks == nullptr ? "" : entry.tracks->name.c_str();
  const auto state = static_cast<track_state>(entry.state);
  OT_TRACE_DETAIL("(%s) : track:%s state %s", __func__, name, track_state_text(state));
  ot_track* track = hash_db_get_track_item(name);
  if (track == nullptr) {
    OT_TRACE_ERROR("(%s) : track %s not found", __func__, name);
    return;
  }
  if (track->source_state == state) {
    return;
  }
  track->source_state = state;
  if (object_tracking_set_track_state_in_ledger(name, state) != status_ok) {
    OT_TRACE_ERROR("(%s) :Error updating state for %s to %s\n", __func__, name,
                   track_state_text(state));
  }
}

int ot_bfd_create_all_sessions() {
  OT_TRACE_ENTRY();
  while (const auto cfg = bfd_cfg_queue.pop()) {
    OT_TRACE_DETAIL("(%s) track %s:", __func__, cfg->name.c_str());
    ot_track* track = nullptr;
    const int status = ot_create_bfd_track_entry(*cfg, &track);
    if (status != status_ok) {
      return trace_entry_failure(__func__, status);
    }
    if (track == nullptr) {
      return trace_no_track(__func__);
    }
    request_session(__func__, *track);
  }
  return status_ok;
}

void drop_bfd_cfgs() noexcept {
  bfd_cfg_queue.clear();
  is_bfd_config_pending = 0;
}

std::uint32_t bfd_cfg_count() noexcept {
  return bfd_cfg_queue.count();
}

}  // namespace ot
