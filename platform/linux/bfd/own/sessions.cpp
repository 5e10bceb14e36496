// The sessions of our own engine: begun, given up, led over the way there is to their neighbor, and
// told of.
#include <algorithm>
#include <new>

#include "platform/linux/bfd/own/engine.h"
#include "platform/linux/monotonic.h"

namespace ot::bfd {
namespace {

session_timing timing_of(const session_config& config) noexcept {
  return {config.interval * 1000, config.interval * 1000,
          static_cast<std::uint8_t>(config.multiplier)};
}

std::uint32_t usec(std::uint64_t interval) noexcept {
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(interval, UINT32_MAX));
}

}  // namespace

void own_engine::add(const session_config& session) noexcept {
  const auto known = sessions_.find(session.key);
  const std::uint64_t now = monotonic_us();
  try {
    if (known != sessions_.end()) {
      known->second.config = session;
      speaker_.set_timing(*known->second.spoken, timing_of(session), now);
      find_path(known->second);
    } else {
      add_new(session);
    }
  } catch (const std::bad_alloc&) {
    bfdc_session_status status;
    status.problem.assign("out of memory");
    owner_.session_changed(session.key, status);
  }
  serve(now);
}

void own_engine::add_new(const session_config& session) {
  open();
  held_session& added = sessions_[session.key];
  added.config = session;
  try {
    begin(added);
  } catch (...) {
    sessions_.erase(session.key);
    throw;
  }
  find_path(added);
}

// A session that is being given up on the same way is taken back, since the neighbor can know only
// one.
void own_engine::begin(held_session& session) {
  const std::uint64_t now = monotonic_us();
  const session_timing timing = timing_of(session.config);
  std::string_view problem;
  const std::optional<neighbor_path> path = links_.towards(session.config, &problem);
  session.slot = saved_.take_slot();
  if (path && socket_.is_open()) {
    session.spoken = speaker_.take_back(*path, timing, now);
  }
  if (session.spoken == nullptr) {
    const agreed_session* left = path ? left_of(session.config, *path) : nullptr;
    session.unconfirmed = left != nullptr;
    try {
      session.spoken = &speaker_.add(timing, left, now);
    } catch (const std::bad_alloc&) {
      saved_.free_slot(session.slot);
      throw;
    }
  }
  session.spoken->tag = &session;
}

const agreed_session* own_engine::left_of(const session_config& config,
                                          const neighbor_path& path) noexcept {
  if (monotonic_us() > left_until_) {
    left_.clear();
  }
  const auto found = std::find_if(left_.begin(), left_.end(), [&](const saved_session& session) {
    return session.config == config && session.path == path;
  });
  return found == left_.end() ? nullptr : &found->agreed;
}

std::optional<neighbor_path> own_engine::way_of(const held_session& session,
                                                std::string_view* ret_problem) const noexcept {
  if (!socket_.is_open()) {
    *ret_problem = stood_down_;
    return std::nullopt;
  }
  return links_.towards(session.config, ret_problem);
}

void own_engine::find_path(held_session& session) {
  std::string_view problem;
  const std::optional<neighbor_path> path = way_of(session, &problem);
  const problem_text before = session.problem;
  session.problem.assign(problem);
  if (path) {
    speaker_.set_path(*session.spoken, *path, monotonic_us());
  } else {
    speaker_.lose_path(*session.spoken, monotonic_us());
  }
  if (!(session.problem == before)) {
    report(session);
  }
}

// All leave their old ways first: one of them may be another session's from now on.
void own_engine::find_paths() noexcept {
  std::string_view problem;
  for (auto& [key, session] : sessions_) {
    if (session.spoken != nullptr && session.spoken->path != way_of(session, &problem)) {
      speaker_.lose_path(*session.spoken, monotonic_us());
    }
  }
  for (auto& [key, session] : sessions_) {
    try {
      if (session.spoken != nullptr) {
        find_path(session);
      }
    } catch (const std::bad_alloc&) {
      session.problem.assign("out of memory");
    }
  }
}

void own_engine::links_changed(void* self) noexcept {
  auto* engine = static_cast<own_engine*>(self);
  engine->find_paths();
  engine->serve(monotonic_us());
}

void own_engine::remove(const session_key& key) noexcept {
  const auto found = sessions_.find(key);
  if (found == sessions_.end()) {
    return;
  }
  saved_.free_slot(found->second.slot);
  speaker_.remove(*found->second.spoken, monotonic_us());
  sessions_.erase(found);
  serve(monotonic_us());
}

// --- Reports -------------------------------------------------------------------------------------

void own_engine::changed(spoken_session& session) noexcept {
  auto* held = static_cast<held_session*>(session.tag);
  if (held == nullptr) {
    return;
  }
  if (session.machine.state() == session_state::up && session.path) {
    saved_.keep(held->slot, {held->config, *session.path, session.machine.agreed()});
  } else {
    saved_.forget(held->slot);
  }
  report(*held);
}

void own_engine::report(held_session& session) noexcept {
  session.unconfirmed = session.unconfirmed && session.spoken->packets_in == 0 &&
                        session.spoken->machine.state() == session_state::up;
  owner_.session_changed(session.config.key, status_of(session));
}

bfdc_session_status own_engine::status_of(const held_session& session) const noexcept {
  const spoken_session& spoken = *session.spoken;
  const ot::bfd::session& machine = spoken.machine;
  bfdc_session_status status;
  status.state = session.unconfirmed ? bfd_state_down : static_cast<std::uint8_t>(machine.state());
  status.diagnostic = static_cast<std::uint8_t>(machine.reason());
  status.remote_state = static_cast<std::uint8_t>(machine.remote_state());
  status.remote_diagnostic = static_cast<std::uint8_t>(machine.remote_reason());
  status.transmit_interval = usec(machine.transmit_interval());
  status.receive_interval = usec(machine.receive_interval());
  status.detection_time = usec(machine.detection_time());
  status.packets_in = spoken.packets_in;
  status.packets_out = spoken.packets_out;
  status.ups = spoken.ups;
  status.downs = spoken.downs;
  status.problem = session.problem;
  return status;
}

}  // namespace ot::bfd
