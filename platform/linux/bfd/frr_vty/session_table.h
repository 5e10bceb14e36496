// The sessions wanted of bfdd and what is known of them there: what is to be done next, and what
// that has led to. No socket, no clock; times are milliseconds of one monotonic clock. What is not
// `noexcept` may throw bad_alloc.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/linux/bfd/frr_vty/addresses.h"
#include "platform/linux/bfd/frr_vty/configuration.h"
#include "platform/linux/bfd/frr_vty/listing.h"
#include "platform/linux/bfd/frr_vty/log_message.h"

namespace ot::bfd::vty {

enum class change_kind { make, withdraw };

// A block of commands for one session, to be done now.
struct change {
  change_kind kind = change_kind::make;
  session_key key;
  std::uint32_t local = 0;  // what it speaks from
  session_config config;    // of one to be made
  std::vector<std::string> commands;
};

// How a block ended: the place of the command that failed, if one has, and what bfdd said to it.
struct change_outcome {
  std::optional<std::size_t> failed;
  std::string_view text;
};

// By what the next change is chosen.
struct change_conditions {
  std::uint64_t now = 0;
  bool tidy = false;     // leftovers of an earlier run will not be wanted any more
  bool our_log = false;  // bfdd logs sessions because we told it to
  std::span<const interface_address> addresses;
};

class session_table {
 public:
  session_table(engine::owner& reported, peer_mark mark)
      : owner_(reported), mark_(std::move(mark)) {}

  void want(const session_config& session);
  void give_up(const session_key& key) noexcept;
  // For the end: nothing is wanted, and nothing reported any more.
  void give_up_all() noexcept;
  [[nodiscard]] bool any_wanted() const noexcept;
  // Nothing is wanted, and nothing of ours is left.
  [[nodiscard]] bool empty() const noexcept { return sessions_.empty(); }
  // bfdd is away: all sessions are down and nothing is known of it.
  void lost() noexcept;

  // None: nothing is to be changed now. `ret_look`: but something may be when both lists have been
  // looked at, since what is made must not be there already.
  std::optional<change> next(const change_conditions& conditions, bool* ret_look);
  void done(const change& what, const change_outcome& outcome, std::uint64_t now);

  // The lists. The first one returns whether bfdd logs sessions because an earlier run of ours has
  // told it to, going by what that has left. `moves_before`: moves() when the list was asked for;
  // what has moved since then is newer.
  bool take_configuration(const running_configuration& configuration);
  void take_sessions(const std::vector<listed_session>& sessions, std::uint64_t moves_before);
  void take_counters(const std::vector<listed_counters>& counters);
  // Both lists are those of now: what is missing may be made.
  void looked() noexcept;

  void moved(const session_move& move) noexcept;
  [[nodiscard]] std::uint64_t moves() const noexcept { return moves_; }

  // For the end: they take away what is ours in bfdd.
  [[nodiscard]] std::vector<change> final_changes() const;

 private:
  enum class presence { nobodys, ours, anothers };

  struct entry {
    bool wanted = false;
    bool of_this_run = false;
    session_config config;
    presence present = presence::nobodys;
    bool unbound = false;                // another's that is bound to no interface
    std::uint32_t local = 0;             // of ours
    std::optional<session_config> made;  // ours has these values
    bool broken = false;                 // ours is not what it should be, and must go
    bool seen_missing = false;           // by the last look
    unsigned refusals = 0;               // in a row
    std::uint64_t not_before = 0;
    std::uint64_t moved_at = 0;  // moves_ then
    bool counted = false;
    bool fell = false;  // since the counters were looked at
    bfdc_session_status status;
    bfdc_session_status reported;

    [[nodiscard]] bool up() const noexcept { return status.state == bfd_state_up; }
  };
  using entry_row = std::pair<const session_key, entry>;

  void report(entry_row& row) noexcept;
  void set_problem(entry_row& row, std::string_view problem) noexcept;
  void vanish(entry_row& row) noexcept;
  void refuse(entry_row& row, std::string_view text, std::uint64_t now) noexcept;
  void made(entry_row& row, const change& what, const change_outcome& outcome,
            std::uint64_t now) noexcept;
  void withdrawn(entry_row& row, const change_outcome& outcome, std::uint64_t now) noexcept;
  void take_listed(entry_row& row, const listed_session& listed, bool exact, bool newer) noexcept;
  void move_one(entry_row& row, const session_move& move) noexcept;
  std::optional<change> next_of(entry_row& row, const change_conditions& conditions,
                                bool* ret_look);
  std::optional<change> next_wanted(entry_row& row, const change_conditions& conditions,
                                    bool* ret_look);
  [[nodiscard]] change make(const entry_row& row, std::uint32_t local, bool our_log) const;
  static change withdraw(const entry_row& row);
  void forget_unwanted() noexcept;

  engine::owner& owner_;
  peer_mark mark_;
  std::map<session_key, entry> sessions_;
  session_key cursor_;  // the search for the next change goes on here
  std::uint64_t moves_ = 0;
};

}  // namespace ot::bfd::vty
