// One end of a BFD session (RFC 5880, asynchronous mode, without authentication, echo and demand):
// its state, its timers and the packets it sends. No socket and no clock: the owner hands packets
// and the time in and takes packets out. Times are microseconds of one monotonic clock.
//
// The order of use: received() for each packet of the session, then, at next_due() or earlier,
// run(), and next_packet() until it has none.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/common/bfd/packet.h"
#include "platform/common/bfd/session_terms.h"

namespace ot::bfd {

// Packets may go out so much before their time, for those of many sessions to go out together; what
// their spreading leaves is as long as it has to be all the same.
inline constexpr std::uint64_t most_early = 1000;

class session {
 public:
  using random_number = std::uint32_t (*)(void* context);

  // `discriminator` is unique in this system and not 0; `random` spreads the packets.
  session(std::uint32_t discriminator, const session_timing& timing, std::uint64_t now,
          random_number random, void* context) noexcept;

  // Goes on where a session that was up has left off, as if its neighbor had just been heard.
  session(const agreed_session& agreed, const session_timing& timing, std::uint64_t now,
          random_number random, void* context) noexcept;
  // What to go on with; while the session is up.
  [[nodiscard]] agreed_session agreed() const noexcept {
    return {discriminator_, in_force_.tx, in_force_.rx, remote_};
  }

  // A packet that read_control_packet() accepted and that is for this session.
  void received(const control_packet& packet, std::uint64_t now) noexcept;
  // Does what is due: the neighbor that was not heard in time.
  void run(std::uint64_t now) noexcept;
  // The next packet that is due, or would be within `early`, to be sent at once; none when there is
  // none. `early` is at most `most_early`.
  std::optional<control_packet> next_packet(std::uint64_t now, std::uint64_t early = 0) noexcept;
  // When run() and next_packet() have something to do; none before another event.
  [[nodiscard]] std::optional<std::uint64_t> next_due() const noexcept;

  // Other intervals, in agreement with the neighbor while the session is up.
  void set_timing(const session_timing& timing, std::uint64_t now) noexcept;
  // The way to the neighbor has gone: its interface has, or its carrier.
  void lose_path(std::uint64_t now) noexcept;
  // Taken out of use, which the neighbor is told for as long as it would take to notice; and back.
  void disable(std::uint64_t now) noexcept;
  void enable(std::uint64_t now) noexcept;

  [[nodiscard]] session_state state() const noexcept { return state_; }
  [[nodiscard]] diagnostic reason() const noexcept { return reason_; }
  [[nodiscard]] session_state remote_state() const noexcept { return remote_.state; }
  [[nodiscard]] diagnostic remote_reason() const noexcept { return remote_.reason; }
  [[nodiscard]] std::uint32_t discriminator() const noexcept { return discriminator_; }
  [[nodiscard]] std::uint32_t remote_discriminator() const noexcept {
    return remote_.my_discriminator;
  }
  [[nodiscard]] std::optional<std::uint64_t> silent_from() const noexcept { return silent_from_; }
  // Between two packets of ours before they are spread; 0 when the neighbor wants none.
  [[nodiscard]] std::uint64_t transmit_interval() const noexcept;
  // Between two packets of the neighbor's, at most; 0 while it was never heard.
  [[nodiscard]] std::uint64_t receive_interval() const noexcept;
  // How long the neighbor may be silent; 0 while it was never heard.
  [[nodiscard]] std::uint64_t detection_time() const noexcept {
    return remote_.detect_multiplier * receive_interval();
  }

 private:
  struct intervals {
    std::uint32_t tx = 0;
    std::uint32_t rx = 0;

    friend bool operator==(const intervals&, const intervals&) = default;
  };

  void enter(session_state state, diagnostic reason, std::uint64_t now) noexcept;
  void follow(session_state neighbor, std::uint64_t now) noexcept;
  void forget_neighbor(diagnostic why, std::uint64_t now) noexcept;
  void announce(const intervals& wanted, std::uint64_t now) noexcept;
  void take_final(std::uint64_t now) noexcept;
  void reschedule(std::uint64_t now) noexcept;
  [[nodiscard]] intervals wanted() const noexcept;
  [[nodiscard]] bool sends_periodically() const noexcept;
  [[nodiscard]] std::uint64_t next_periodic() const noexcept;
  [[nodiscard]] std::uint64_t spread(std::uint64_t interval) const noexcept;
  [[nodiscard]] control_packet packet(bool final) const noexcept;

  std::uint32_t discriminator_;
  session_timing timing_;
  random_number random_;
  void* random_context_;

  session_state state_ = session_state::down;
  diagnostic reason_ = diagnostic::none;
  intervals announced_;      // in our packets
  intervals in_force_;       // as far as the neighbor has agreed
  bool polling_ = false;     // it has not yet
  bool poll_again_ = false;  // and they have changed meanwhile
  bool final_due_ = false;   // it has asked us
  bool news_due_ = false;    // our packet would differ from the last one
  std::uint64_t news_paid_until_ = 0;
  std::uint64_t last_sent_ = 0;
  std::uint64_t next_send_ = 0;
  std::optional<std::uint64_t> silent_from_;  // disabled, and told for long enough by then

  control_packet remote_;  // the last one received; my_discriminator 0: none, or too long ago
  std::uint64_t last_heard_ = 0;
};

}  // namespace ot::bfd
