// What bfdd's lists and its log tell of the sessions in the table.
#include <map>

#include "platform/linux/bfd/frr_vty/session_table.h"

namespace ot::bfd::vty {
namespace {

// More leftovers than a service can have left; those beyond wait for the next look.
constexpr std::size_t table_limit = 16'384;

}  // namespace

bool session_table::take_configuration(const running_configuration& configuration) {
  std::map<session_key, const configured_peer*> peers;
  bool our_log = false;
  for (const configured_peer& peer : configuration.peers) {
    peers[peer.key] = &peer;
    our_log = our_log || mark_.our_log(peer.profile);
  }
  for (entry_row& row : sessions_) {
    if (row.second.present != presence::ours) {
      continue;
    }
    const auto found = peers.find(row.first);
    // Somebody has taken our mark away, or the peer; the sessions' list tells whether one is left.
    if (found == peers.end() || !mark_.own(found->second->profile)) {
      row.second.present = presence::anothers;
    }
  }
  for (const auto& [key, peer] : peers) {
    const bool room = sessions_.size() < table_limit || sessions_.contains(key);
    if (!mark_.own(peer->profile) || !writable_name(key.interface) || !room) {
      continue;
    }
    entry& session = sessions_[key];
    if (session.present != presence::ours) {
      session.present = presence::ours;
      session.unbound = false;
      session.local = peer->local;
      session.made.reset();
      session.broken = false;
    }
  }
  return our_log;
}

void session_table::take_sessions(const std::vector<listed_session>& sessions,
                                  std::uint64_t moves_before) {
  std::map<session_key, const listed_session*> listed;
  for (const listed_session& session : sessions) {
    listed[session.key] = &session;
  }
  for (entry_row& row : sessions_) {
    const bool newer = row.second.moved_at > moves_before;
    const auto exact = listed.find(row.first);
    const auto unbound = listed.find({interface_name{}, row.first.destination});
    if (exact != listed.end()) {
      take_listed(row, *exact->second, true, newer);
    } else if (unbound != listed.end()) {
      take_listed(row, *unbound->second, false, newer);
    } else if (row.second.present != presence::nobodys) {
      vanish(row);
    }
  }
  forget_unwanted();
}

// `newer`: what is known of its state is newer than the list.
void session_table::take_listed(entry_row& row, const listed_session& listed, bool exact,
                                bool newer) noexcept {
  entry& session = row.second;
  if (session.present != presence::ours || !exact || listed.dynamic) {
    session.present = presence::anothers;
    session.made.reset();
    session.unbound = !exact;
    session.status.problem.clear();
  }
  session.status.of_another = session.present == presence::anothers;
  if (!newer) {
    bfdc_session_status now = listed.status;
    now.of_another = session.status.of_another;
    now.problem = session.status.problem;
    now.packets_in = session.status.packets_in;
    now.packets_out = session.status.packets_out;
    now.ups = session.status.ups;
    now.downs = session.status.downs;
    session.status = now;
    session.fell = session.fell || !session.up();
  }
  report(row);
}

// A session that has gone down and come up again between two looks shows by its counter alone.
void session_table::take_counters(const std::vector<listed_counters>& counters) {
  std::map<session_key, const listed_counters*> listed;
  for (const listed_counters& each : counters) {
    listed[each.key] = &each;
  }
  for (entry_row& row : sessions_) {
    entry& session = row.second;
    const bool bound = session.present != presence::anothers || !session.unbound;
    const auto found =
        listed.find({bound ? row.first.interface : interface_name{}, row.first.destination});
    if (found == listed.end() || session.present == presence::nobodys) {
      continue;
    }
    const listed_counters& now = *found->second;
    if (session.counted && !session.fell && session.up() && now.downs > session.status.downs) {
      session.status.state = bfd_state_down;
      report(row);
      session.status.state = bfd_state_up;
    }
    session.status.packets_in = now.packets_in;
    session.status.packets_out = now.packets_out;
    session.status.ups = now.ups;
    session.status.downs = now.downs;
    session.counted = true;
    session.fell = !session.up();
    report(row);
  }
}

void session_table::looked() noexcept {
  for (entry_row& row : sessions_) {
    row.second.seen_missing = row.second.present == presence::nobodys;
  }
}

void session_table::moved(const session_move& move) noexcept {
  ++moves_;
  if (!move.key.interface.empty()) {
    const auto found = sessions_.find(move.key);
    if (found != sessions_.end() && !found->second.unbound) {
      move_one(*found, move);
    }
    return;
  }
  for (auto each = sessions_.lower_bound(move.key);
       each != sessions_.end() && each->first.destination == move.key.destination; ++each) {
    if (each->second.unbound) {
      move_one(*each, move);
    }
  }
}

void session_table::move_one(entry_row& row, const session_move& move) noexcept {
  entry& session = row.second;
  if (session.present == presence::nobodys) {
    return;
  }
  session.moved_at = moves_;
  const bool up = move.state == bfd_state_up;
  session.fell = session.fell || !up;
  session.status.state = move.state;
  session.status.diagnostic = move.diagnostic;
  session.status.remote_state = up ? bfd_state_up : bfd_state_down;
  session.status.transmit_interval = 0;  // until they are looked at
  session.status.receive_interval = 0;
  session.status.detection_time = 0;
  report(row);
}

}  // namespace ot::bfd::vty
