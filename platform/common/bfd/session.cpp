#include "platform/common/bfd/session.h"

#include <algorithm>

namespace ot::bfd {
namespace {

// A session that is not up sends no faster than this, however it is configured.
constexpr std::uint32_t slow_interval = 1'000'000;

// What counts of a neighbor of which nothing was heard.
constexpr control_packet unheard() noexcept {
  return {.required_min_rx = 1};
}

}  // namespace

session::session(std::uint32_t discriminator, const session_timing& timing, std::uint64_t now,
                 random_number random, void* context) noexcept
    : discriminator_(discriminator),
      timing_(timing),
      random_(random),
      random_context_(context),
      announced_(wanted()),
      in_force_(announced_),
      last_sent_(now),
      next_send_(now),
      remote_(unheard()) {}

session::session(const agreed_session& agreed, const session_timing& timing, std::uint64_t now,
                 random_number random, void* context) noexcept
    : session(agreed.discriminator, timing, now, random, context) {
  state_ = session_state::up;
  remote_ = agreed.remote;
  last_heard_ = now;
  announced_ = in_force_ = {agreed.tx, agreed.rx};
  announce(wanted(), now);
}

session::intervals session::wanted() const noexcept {
  const bool up = state_ == session_state::up;
  return {up ? timing_.desired_min_tx : std::max(timing_.desired_min_tx, slow_interval),
          timing_.required_min_rx};
}

std::uint64_t session::transmit_interval() const noexcept {
  return remote_.required_min_rx == 0 ? 0 : std::max(in_force_.tx, remote_.required_min_rx);
}

std::uint64_t session::receive_interval() const noexcept {
  return remote_.detect_multiplier == 0 ? 0 : std::max(in_force_.rx, remote_.desired_min_tx);
}

// --- Events --------------------------------------------------------------------------------------

void session::received(const control_packet& packet, std::uint64_t now) noexcept {
  const std::uint64_t before = transmit_interval();
  remote_ = packet;
  last_heard_ = now;
  if (packet.final && polling_) {
    take_final(now);
  }
  if (state_ != session_state::admin_down) {
    follow(packet.state, now);
    final_due_ |= packet.poll;
  }
  if (transmit_interval() != before) {
    reschedule(now);
  }
}

// The state machine of RFC 5880, 6.2 and 6.8.6: by our state, then by the neighbor's.
void session::follow(session_state neighbor, std::uint64_t now) noexcept {
  constexpr session_state A = session_state::admin_down;
  constexpr session_state D = session_state::down;
  constexpr session_state I = session_state::init;
  constexpr session_state U = session_state::up;
  constexpr session_state next_states[4][4] = {
      {A, A, A, A}, {D, I, U, D}, {D, I, U, U}, {D, D, U, U}};
  const session_state next =
      next_states[static_cast<std::size_t>(state_)][static_cast<std::size_t>(neighbor)];
  if (next != state_) {
    const diagnostic ended = next == D ? diagnostic::neighbor_signaled_down : reason_;
    enter(next, next == U ? diagnostic::none : ended, now);
  }
}

void session::run(std::uint64_t now) noexcept {
  if (remote_.my_discriminator == 0 || now < last_heard_ + detection_time()) {
    return;
  }
  forget_neighbor(diagnostic::detection_time_expired, now);
}

void session::lose_path(std::uint64_t now) noexcept {
  forget_neighbor(diagnostic::path_down, now);
}

void session::forget_neighbor(diagnostic why, std::uint64_t now) noexcept {
  remote_ = unheard();
  polling_ = false;
  final_due_ = false;
  if (state_ == session_state::init || state_ == session_state::up) {
    enter(session_state::down, why, now);
  }
}

void session::disable(std::uint64_t now) noexcept {
  if (state_ == session_state::admin_down) {
    return;
  }
  enter(session_state::admin_down, diagnostic::administratively_down, now);
  next_send_ = now;  // there may be no other packet
  silent_from_ = now + timing_.detect_multiplier * transmit_interval();
}

void session::enable(std::uint64_t now) noexcept {
  if (state_ != session_state::admin_down) {
    return;
  }
  silent_from_.reset();
  enter(session_state::down, diagnostic::none, now);
}

void session::set_timing(const session_timing& timing, std::uint64_t now) noexcept {
  news_due_ |= timing.detect_multiplier != timing_.detect_multiplier;
  timing_ = timing;
  announce(wanted(), now);
}

void session::enter(session_state state, diagnostic reason, std::uint64_t now) noexcept {
  state_ = state;
  reason_ = reason;
  news_due_ = true;
  announce(wanted(), now);
}

// --- Intervals -----------------------------------------------------------------------------------

// While the session is up the neighbor has to agree before we send more rarely than it expects, or
// expect packets sooner than it sends them (RFC 5880, 6.8.3).
void session::announce(const intervals& wanted, std::uint64_t now) noexcept {
  const bool up = state_ == session_state::up;
  const bool told = announced_ == wanted;
  if (told && (up || in_force_ == wanted)) {
    return;
  }
  const std::uint64_t before = transmit_interval();
  announced_ = wanted;
  if (up) {
    in_force_.tx = std::min(in_force_.tx, wanted.tx);
    in_force_.rx = std::max(in_force_.rx, wanted.rx);
  } else {
    in_force_ = wanted;
  }
  if (!told) {
    poll_again_ = polling_;
    polling_ = remote_.my_discriminator != 0;
    news_due_ = true;
  }
  if (transmit_interval() != before) {
    reschedule(now);
  }
}

// The neighbor has seen a poll of ours: the one before the last change, if there was one meanwhile.
void session::take_final(std::uint64_t now) noexcept {
  if (poll_again_) {
    poll_again_ = false;
    news_due_ = true;
    return;
  }
  polling_ = false;
  const std::uint64_t before = transmit_interval();
  in_force_ = announced_;
  if (transmit_interval() != before) {
    reschedule(now);
  }
}

}  // namespace ot::bfd
