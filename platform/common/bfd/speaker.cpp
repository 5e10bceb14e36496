#include "platform/common/bfd/speaker.h"

#include <algorithm>
#include <limits>
#include <tuple>

namespace ot::bfd {
namespace {

constexpr std::uint64_t never = std::numeric_limits<std::uint64_t>::max();
constexpr int own_link_ttl = 255;  // a router in between would have taken something off

// What the owner is told changes of.
auto told(const spoken_session& session) noexcept {
  const ot::bfd::session& machine = session.machine;
  return std::tuple(session.packets_in == 0, machine.state(), machine.reason(),
                    machine.remote_state(), machine.remote_reason(), machine.transmit_interval(),
                    machine.detection_time());
}

}  // namespace

std::uint32_t speaker::unused_discriminator() const noexcept {
  std::uint32_t number = 0;
  do {
    number = random_(context_);
  } while (number == 0 || sessions_.contains(number));
  return number;
}

spoken_session& speaker::add(const session_timing& timing, const agreed_session* agreed,
                             std::uint64_t now) {
  const bool goes_on = agreed != nullptr && !sessions_.contains(agreed->discriminator);
  auto begun = std::make_unique<spoken_session>(
      goes_on ? session(*agreed, timing, now, random_, context_)
              : session(unused_discriminator(), timing, now, random_, context_));
  spoken_session& added = *begun;
  added.scheduled = never;
  const auto due = deadlines_.emplace(never, &added).first;
  try {
    running_.reserve(sessions_.size() + 1);  // run() cannot fail
    sessions_.emplace(added.machine.discriminator(), std::move(begun));
  } catch (...) {
    deadlines_.erase(due);
    throw;
  }
  return added;
}

void speaker::erase(spoken_session& session) noexcept {
  if (session.path) {
    places_.erase({session.path->ifindex, session.path->destination});
  }
  deadlines_.erase({session.scheduled, &session});
  sessions_.erase(session.machine.discriminator());
}

// Does something with a session and what follows from it.
template <typename Action>
void speaker::act(spoken_session& session, std::uint64_t now, Action action) noexcept {
  const auto before = told(session);
  const session_state was = session.machine.state();
  action();
  const session_state is = session.machine.state();
  session.ups += was != session_state::up && is == session_state::up ? 1U : 0U;
  session.downs += was == session_state::up && is != session_state::up ? 1U : 0U;
  send_due(session, now);
  schedule(session);
  if (!session.leaving && told(session) != before) {
    owner_.changed(session);
  }
}

void speaker::send_due(spoken_session& session, std::uint64_t now) noexcept {
  while (session.path) {
    const std::optional<control_packet> packet = session.machine.next_packet(now, most_early);
    if (!packet) {
      return;
    }
    ++session.packets_out;
    owner_.send(*session.path, *packet);
  }
}

// The place among the deadlines is moved, never made: that cannot fail.
void speaker::schedule(spoken_session& session) noexcept {
  std::uint64_t due = never;
  if (session.path) {
    due = session.machine.next_due().value_or(never);
    if (session.leaving) {
      due = std::min(due, session.machine.silent_from().value_or(never));
    }
  }
  if (due != session.scheduled) {
    auto node = deadlines_.extract({session.scheduled, &session});
    session.scheduled = due;
    node.value().first = due;
    deadlines_.insert(std::move(node));
  }
}

// --- The owner's calls ---------------------------------------------------------------------------

void speaker::remove(spoken_session& session, std::uint64_t now) noexcept {
  session.tag = nullptr;
  session.leaving = true;
  if (session.path) {
    act(session, now, [&] { session.machine.disable(now); });
  } else {
    erase(session);
  }
}

spoken_session* speaker::take_back(const neighbor_path& path, const session_timing& timing,
                                   std::uint64_t now) noexcept {
  const auto found = places_.find({path.ifindex, path.destination});
  if (found == places_.end() || !found->second->leaving) {
    return nullptr;
  }
  spoken_session& session = *found->second;
  session.leaving = false;
  session.path = path;
  act(session, now, [&] {
    session.machine.enable(now);
    session.machine.set_timing(timing, now);
  });
  return &session;
}

void speaker::set_path(spoken_session& session, const neighbor_path& path, std::uint64_t now) {
  if (session.path == path) {
    return;
  }
  if (session.path) {
    lose_path(session, now);
  }
  const auto [place, is_new] = places_.try_emplace({path.ifindex, path.destination}, &session);
  if (!is_new) {
    if (!place->second->leaving) {
      return;  // one session for a neighbor; the owner names each but once
    }
    erase(*place->second);
    places_.emplace(std::pair{path.ifindex, path.destination}, &session);
  }
  session.path = path;
  act(session, now, [] {});
}

void speaker::lose_path(spoken_session& session, std::uint64_t now) noexcept {
  if (!session.path) {
    return;
  }
  places_.erase({session.path->ifindex, session.path->destination});
  session.path.reset();
  act(session, now, [&] { session.machine.lose_path(now); });
}

void speaker::set_timing(spoken_session& session, const session_timing& timing,
                         std::uint64_t now) noexcept {
  act(session, now, [&] { session.machine.set_timing(timing, now); });
}

void speaker::say_farewell(std::uint64_t now) noexcept {
  for (auto& [discriminator, session] : sessions_) {
    session->leaving = true;
    act(*session, now, [&, &machine = session->machine] { machine.disable(now); });
  }
}

// --- Packets and the clock -----------------------------------------------------------------------

// In the order of RFC 5880, 6.8.6. That a packet comes over the session's own link and from its
// neighbor is asked of those too that name the session.
spoken_session* speaker::recipient(const control_packet& packet,
                                   const packet_arrival& arrival) noexcept {
  if (packet.your_discriminator == 0) {
    const auto place = places_.find({arrival.ifindex, arrival.source});
    return place == places_.end() ? nullptr : place->second;
  }
  const auto named = sessions_.find(packet.your_discriminator);
  if (named == sessions_.end() || !named->second->path ||
      named->second->path->ifindex != arrival.ifindex ||
      named->second->path->destination != arrival.source) {
    return nullptr;
  }
  return named->second.get();
}

void speaker::received(std::span<const std::byte> datagram, const packet_arrival& arrival,
                       std::uint64_t now) noexcept {
  if (arrival.ttl != own_link_ttl) {
    ++discarded_.ttl;
    return;
  }
  control_packet packet;
  if (const discard why = read_control_packet(datagram, &packet); why != discard::none) {
    ++discarded_.malformed[static_cast<std::size_t>(why)];
    return;
  }
  spoken_session* session = recipient(packet, arrival);
  if (session == nullptr) {
    ++discarded_.no_session;
    return;
  }
  act(*session, now, [&] {
    ++session->packets_in;
    session->machine.received(packet, now);
  });
}

void speaker::run(std::uint64_t now) noexcept {
  running_.clear();
  for (auto next = deadlines_.begin(); next != deadlines_.end() && next->first <= now + most_early;
       ++next) {
    running_.push_back(next->second);
  }
  for (spoken_session* session : running_) {
    if (session->leaving && session->machine.silent_from().value_or(never) <= now) {
      erase(*session);
    } else {
      act(*session, now, [&] { session->machine.run(now); });
    }
  }
}

std::optional<std::uint64_t> speaker::next_due() const noexcept {
  if (deadlines_.empty() || deadlines_.begin()->first == never) {
    return std::nullopt;
  }
  return deadlines_.begin()->first;
}

}  // namespace ot::bfd
