// trackpolicy, the runner of event policies.
//
// A policy says what is done when a track changes its state: a command is run, lines are given to
// FRR's shell, a file is written, a route is installed or withdrawn, an interface set down or up.
// trackpolicy follows the tracks of the service and does it. It is a process of its own, with one
// event loop, and a thread that only follows the service.
//
//   policy.h           a policy as it is configured
//   config.h           the files -> policies, or every error with its place
//   policy_keys.h      the keys of a policy; with tools/settings/
//   kinds/             one file a kind, with its row: its keys, what it does, what it would do
//   reaction.h         a policy at work, and what it may ask of the system
//   kernel/            routes and interfaces: what should be, what is, and the difference
//   foundations.h      which interfaces a track itself depends on
//   log.h              what is said, and never waits for a reader
//   state_filter.h     which states a policy acts upon: those that last, and no flaps
//   flap_records.h     what is remembered of flaps
//   engine.h           which states there are, and whom they concern; knows no processes and files
//   follower.h         the thread: the tracks' states, then their events, then states again
//   system.h           the engine's host on a router: processes, files, what is remembered
//   status_socket.h    what `trackctl policy list` reads
//   daemon.cpp         the process: lock, signals, reload
//
// Everything follows from states, not from events: at the start, when the service is back, and
// after a reload, each policy gets the state that its track has, and does something only if that
// is not what it did last. What commands have been told is remembered in /run, so that a restart
// neither loses a state nor tells one twice. A configuration with errors is never taken in part.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/trackpolicy/kernel/route.h"

namespace ot::trackpolicy {

enum class track_state : std::uint8_t { unknown, up, down };  // as events have it
inline constexpr std::array<const char*, 3> state_words{"unknown", "up", "down"};

constexpr std::size_t index_of(track_state state) noexcept {
  return static_cast<std::size_t>(state);
}
inline const char* word_of(track_state state) noexcept {
  return state_words[index_of(state)];
}

enum class kind_id : std::uint8_t { command, file, route, link, frr };

using words = std::vector<std::string>;

struct policy {
  std::string name;
  std::string track;
  kind_id kind = kind_id::command;

  // Which states are acted upon (state_filter.h).
  std::uint32_t hold_ms = 0;
  std::uint32_t half_life_ms = 0;  // 0: no damping
  std::uint32_t suppress = 2000;
  std::uint32_t reuse = 750;

  // command
  words run;                    // on every state that has none of its own
  std::array<words, 3> run_on;  // by state
  std::string user;             // empty: root, which run_as_root says
  bool run_as_root = false;
  std::uint32_t timeout_ms = 30000;
  std::uint32_t retry = 0;  // further attempts when one fails
  std::uint32_t retry_delay_ms = 5000;
  bool every = false;  // tell each state, not only the latest

  // file
  std::string path;
  std::array<std::string, 3> text{"0", "1", "0"};  // by state
  std::uint32_t grace_ms = 10000;

  route kept_route;

  std::string interface;  // of a link

  // frr; the rest is as for commands
  std::array<words, 3> lines;  // by state
  words vtysh{"/usr/bin/vtysh"};

  bool operator==(const policy&) const = default;
};

// The command for a state; empty: none.
inline const words& command_for(const policy& of, track_state state) noexcept {
  const words& own = of.run_on[index_of(state)];
  return own.empty() ? of.run : own;
}

// Commands with the same shell run one after the other: two at once in FRR's refuse each other's
// lines, or lose them. Empty: the command waits for no other.
inline words shell_of(const policy& of) {
  return of.kind == kind_id::frr ? of.vtysh : words{};
}

inline constexpr const char* policies_folder = "/etc/object_tracking/policies.d";

}  // namespace ot::trackpolicy
