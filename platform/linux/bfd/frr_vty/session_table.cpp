// The session table: what bfdd has and what is wanted of it, brought together one block of commands
// at a time. What somebody else has there is followed and never touched, since even a change that
// is taken back would stay with it; when it goes, ours is made.
#include "platform/linux/bfd/frr_vty/session_table.h"

#include <algorithm>
#include <iterator>
#include <string>

namespace ot::bfd::vty {
namespace {

constexpr std::uint64_t first_delay_ms = 1000;
constexpr std::uint64_t longest_delay_ms = 30'000;

std::uint64_t delay_ms(unsigned refusals) noexcept {
  return refusals == 0 ? 0
                       : std::min(first_delay_ms << (std::min(refusals, 6U) - 1), longest_delay_ms);
}

// In a block: where the peer's node has been entered.
constexpr std::size_t entered_place = 3;

// Its first line with something in it.
std::string_view first_line(std::string_view text) noexcept {
  const std::size_t begin = std::min(text.find_first_not_of(" \r\n"), text.size());
  const std::size_t end = std::min(text.find_first_of("\r\n", begin), text.size());
  return text.substr(begin, end - begin);
}

}  // namespace

// --- What is wanted ------------------------------------------------------------------------------

void session_table::want(const session_config& session) {
  entry& present = sessions_[session.key];
  if (!present.wanted) {
    present.reported = {};
    present.status.problem.clear();
    present.seen_missing = false;
  }
  if (!present.wanted || present.config != session) {
    present.refusals = 0;
    present.not_before = 0;
  }
  present.wanted = true;
  present.of_this_run = true;
  present.config = session;
}

void session_table::give_up(const session_key& key) noexcept {
  const auto found = sessions_.find(key);
  if (found == sessions_.end()) {
    return;
  }
  found->second.wanted = false;
  found->second.refusals = 0;
  found->second.not_before = 0;
  forget_unwanted();
}

void session_table::give_up_all() noexcept {
  for (entry_row& row : sessions_) {
    row.second.wanted = false;
  }
}

bool session_table::any_wanted() const noexcept {
  return std::any_of(sessions_.begin(), sessions_.end(),
                     [](const entry_row& row) { return row.second.wanted; });
}

void session_table::lost() noexcept {
  for (entry_row& row : sessions_) {
    vanish(row);
  }
  forget_unwanted();
}

void session_table::forget_unwanted() noexcept {
  std::erase_if(sessions_, [](const entry_row& row) {
    return !row.second.wanted && row.second.present != presence::ours;
  });
}

// --- What is reported ----------------------------------------------------------------------------

void session_table::report(entry_row& row) noexcept {
  entry& session = row.second;
  if (session.wanted && !(session.reported == session.status)) {
    session.reported = session.status;
    owner_.session_changed(row.first, session.status);
  }
}

void session_table::set_problem(entry_row& row, std::string_view problem) noexcept {
  row.second.status.problem.assign(problem);
  report(row);
}

// Nothing of that key is in bfdd any more.
void session_table::vanish(entry_row& row) noexcept {
  entry& session = row.second;
  session.present = presence::nobodys;
  session.unbound = false;
  session.local = 0;
  session.made.reset();
  session.broken = false;
  session.seen_missing = false;
  session.counted = false;
  const auto problem = session.status.problem;
  session.status = {};
  session.status.problem = problem;
  report(row);
}

void session_table::refuse(entry_row& row, std::string_view text, std::uint64_t now) noexcept {
  entry& session = row.second;
  ++session.refusals;
  session.not_before = now + delay_ms(session.refusals);
  session.seen_missing = false;
  fixed_text<96> problem;
  const std::string_view line = first_line(text);
  char words[96] = "FRR refuses the session: ";
  const std::size_t begin = std::string_view{words}.size();
  line.copy(words + begin, std::min(line.size(), sizeof words - begin - 1));
  problem.assign(line.empty() ? "FRR refuses the session" : words);
  set_problem(row, problem.view());
}

// --- What is to be done --------------------------------------------------------------------------

std::optional<change> session_table::next(const change_conditions& conditions, bool* ret_look) {
  *ret_look = false;
  auto each = sessions_.lower_bound(cursor_);
  for (std::size_t count = 0; count < sessions_.size(); ++count) {
    each = each == sessions_.end() ? sessions_.begin() : each;
    if (std::optional<change> found = next_of(*each, conditions, ret_look)) {
      cursor_ = each->first;
      return found;
    }
    ++each;
  }
  return std::nullopt;
}

std::optional<change> session_table::next_of(entry_row& row, const change_conditions& conditions,
                                             bool* ret_look) {
  entry& session = row.second;
  if (session.wanted) {
    return next_wanted(row, conditions, ret_look);
  }
  if (conditions.now < session.not_before) {
    return std::nullopt;
  }
  if (session.present == presence::ours && (session.of_this_run || conditions.tidy)) {
    return withdraw(row);
  }
  return std::nullopt;
}

std::optional<change> session_table::next_wanted(entry_row& row,
                                                 const change_conditions& conditions,
                                                 bool* ret_look) {
  entry& session = row.second;
  if (session.present == presence::anothers || conditions.now < session.not_before) {
    return std::nullopt;
  }
  if (!writable_name(row.first.interface)) {
    set_problem(row, "FRR's shell takes no interface of this name");
    return std::nullopt;
  }
  const std::uint32_t local = choose_address(conditions.addresses, session.config, session.local);
  if (local == 0) {
    set_problem(row, "the interface has no IPv4 address to speak from");
    return std::nullopt;
  }
  if (session.present == presence::ours) {
    // Another address means another session: a peer whose address is changed cannot be deleted.
    if (session.broken || session.local != local) {
      return withdraw(row);
    }
    return session.made == session.config ? std::nullopt
                                          : std::optional{make(row, local, conditions.our_log)};
  }
  *ret_look = *ret_look || !session.seen_missing;
  return session.seen_missing ? std::optional{make(row, local, conditions.our_log)} : std::nullopt;
}

change session_table::make(const entry_row& row, std::uint32_t local, bool our_log) const {
  const session_config& config = row.second.config;
  return {change_kind::make, row.first, local, config,
          make_commands(config, local, mark_.name(our_log))};
}

change session_table::withdraw(const entry_row& row) {
  return {change_kind::withdraw, row.first, row.second.local, row.second.config,
          withdraw_commands(row.first, row.second.local)};
}

// --- What was done -------------------------------------------------------------------------------

void session_table::done(const change& what, const change_outcome& outcome, std::uint64_t now) {
  // It may have been given up meanwhile, and what was made is then to be withdrawn.
  const auto [found, fresh] = sessions_.try_emplace(what.key);
  found->second.of_this_run = found->second.of_this_run || fresh;
  if (what.kind == change_kind::withdraw) {
    withdrawn(*found, outcome, now);
  } else {
    made(*found, what, outcome, now);
  }
  forget_unwanted();
}

// Or not: a peer that was entered and not finished has to go again.
void session_table::made(entry_row& row, const change& what, const change_outcome& outcome,
                         std::uint64_t now) noexcept {
  entry& session = row.second;
  if (outcome.failed.value_or(entered_place) >= entered_place) {
    session.present = presence::ours;
    session.unbound = false;
    session.local = what.local;
    session.broken = outcome.failed.has_value();
    session.made.reset();
  }
  if (outcome.failed) {
    refuse(row, outcome.text, now);
    // What is broken goes at once; only the next attempt waits.
    session.not_before = session.broken ? 0 : session.not_before;
    return;
  }
  session.made = what.config;
  session.refusals = 0;
  set_problem(row, {});
}

void session_table::withdrawn(entry_row& row, const change_outcome& outcome,
                              std::uint64_t now) noexcept {
  entry& session = row.second;
  if (outcome.failed) {
    refuse(row, outcome.text, now);
    return;
  }
  const bool was_broken = session.broken;
  vanish(row);
  session.not_before = was_broken ? now + delay_ms(session.refusals) : 0;
}

std::vector<change> session_table::final_changes() const {
  std::vector<change> changes;
  for (const entry_row& row : sessions_) {
    if (row.second.present == presence::ours) {
      changes.push_back(withdraw(row));
    }
  }
  return changes;
}

}  // namespace ot::bfd::vty
