// A policy at work: it is given its track's states and does what the policy says, with what the
// host offers. Everything happens on the loop's thread; nothing waits.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/trackpolicy/policy.h"

namespace ot::trackpolicy {

// The state of a track, and how it was learnt.
struct situation {
  track_state state = track_state::unknown;
  std::uint64_t since = 0;  // seconds since the epoch; 0: not known
  const char* reason = "";  // "change", "start", "reconnected", "reloaded"
};

// What `policy list` shows.
struct report {
  std::string doing;       // in words
  std::string problem;     // the latest that is not settled; empty: none
  std::uint64_t runs = 0;  // commands ended, files written
  std::uint64_t failures = 0;
  std::uint64_t dropped = 0;  // states that were too many to wait
};

struct command_end {
  bool success = false;
  std::string text;  // "exit status 3", "signal 9"
};

class reaction;
class network;

// What a reaction may ask of the system. Paths are absolute, and OT_ROOT stands before them.
class host {
 public:
  virtual ~host() = default;

  virtual std::uint64_t now_us() const = 0;
  virtual void log(const policy& of, const std::string& text) = 0;

  // False when as many commands run as may; the reaction's due() is called when there is room.
  virtual bool has_room(reaction& who, const policy& of) = 0;
  // 0: it does not run, and `ret_error` says why. Before it runs, who it is becomes a further line
  // of what is remembered of the policy. `ended` is called from the loop.
  virtual pid_t start(const policy& of, const words& argv, const words& environment,
                      std::function<void(const command_end&)> ended, std::string* ret_error) = 0;
  // Asks it to end, and later makes it; `ended` is called as always. False when it has ended by
  // itself, of which only nobody has heard yet.
  virtual bool end(pid_t command) = 0;
  // The same for a command that nobody waits for any more.
  virtual void abandon(pid_t command) = 0;

  // A text that a restart, but not a reboot, finds again; empty: none.
  virtual std::string recall(const std::string& policy_name) = 0;
  virtual void remember(const std::string& policy_name, const std::string& text) = 0;
  virtual void forget(const std::string& policy_name) = 0;
  // Of which policies something is remembered.
  virtual std::vector<std::string> remembered() = 0;
  // The same for the flaps of all policies.
  virtual std::string recall_flaps() = 0;
  virtual void remember_flaps(const std::string& text) = 0;
  // Ends what is left of a command of an earlier trackpolicy; `who` is the line that its start has
  // added.
  virtual void end_leftover(std::string_view who) = 0;

  // Whether the file is there and has that content.
  virtual bool file_has(const std::string& path, const std::string& content) = 0;
  // Empty, or what is wrong.
  virtual std::string write_file(const std::string& path, const std::string& content) = 0;

  // Routes and interfaces.
  virtual network& net() = 0;
};

class reaction {
 public:
  static constexpr std::uint64_t never = UINT64_MAX;

  virtual ~reaction() = default;
  reaction() = default;
  reaction(const reaction&) = delete;
  reaction& operator=(const reaction&) = delete;

  // The track's state, whenever it is learnt; one that is known already is nothing new.
  virtual void see(const situation& now) = 0;
  // The service is not reachable since now; see() tells that it is back.
  virtual void service_gone() {}
  // The time has come, or there is room for a command.
  virtual void due() = 0;
  // A reload has changed the policy, but neither its kind nor its track.
  virtual void change(const policy& to) = 0;
  // A reload has removed it.
  virtual void remove() {}
  [[nodiscard]] virtual report status() const = 0;

  [[nodiscard]] std::uint64_t due_us() const noexcept { return due_us_; }
  void set_due(std::uint64_t when_us) noexcept { due_us_ = when_us; }

 private:
  std::uint64_t due_us_ = never;
};

}  // namespace ot::trackpolicy
