// What a BFD session sends, and when.
#include <algorithm>

#include "platform/common/bfd/session.h"

namespace ot::bfd {
namespace {

// News is sent out of turn, but in the long run no more often than this, and so many at once: two
// ends whose packets overtake each other on the way would else answer each with another for ever.
constexpr std::uint64_t news_interval = 100'000;
constexpr std::uint64_t news_at_once = 10;

}  // namespace

std::optional<control_packet> session::next_packet(std::uint64_t now,
                                                   std::uint64_t early) noexcept {
  if (silent_from_ && now >= *silent_from_) {
    return std::nullopt;
  }
  if (final_due_) {
    final_due_ = false;
    return packet(true);
  }
  early = std::min(early, transmit_interval() / 8);  // or there would be no end of them
  if (!sends_periodically() || now + early < next_periodic()) {
    return std::nullopt;
  }
  if (now + early < next_send_) {
    news_paid_until_ = std::max(news_paid_until_, now) + news_interval;
  }
  news_due_ = false;
  last_sent_ = now;
  next_send_ = now + spread(transmit_interval());
  return packet(false);
}

std::optional<std::uint64_t> session::next_due() const noexcept {
  std::optional<std::uint64_t> due;
  const auto earlier = [&due](std::uint64_t at) { due = due ? std::min(*due, at) : at; };
  if (remote_.my_discriminator != 0) {
    earlier(last_heard_ + detection_time());
  }
  if (final_due_) {
    earlier(last_heard_);
  }
  if (sends_periodically()) {
    const std::uint64_t at = next_periodic();
    if (!silent_from_ || at < *silent_from_) {
      earlier(at);
    }
  }
  return due;
}

std::uint64_t session::next_periodic() const noexcept {
  if (!news_due_) {
    return next_send_;
  }
  const std::uint64_t ahead = std::min(news_paid_until_, news_at_once * news_interval);
  return std::min(next_send_, std::max(last_sent_, news_paid_until_ - ahead));
}

// A neighbor may want none at all, or none but polls while both ends are up.
bool session::sends_periodically() const noexcept {
  const bool on_demand = remote_.demand && state_ == session_state::up &&
                         remote_.state == session_state::up && !polling_;
  return remote_.required_min_rx != 0 && !on_demand;
}

void session::reschedule(std::uint64_t now) noexcept {
  next_send_ = std::max(now, last_sent_ + spread(transmit_interval()));
}

// 75 to 100 percent; at most 90 where a single packet that is late ends the session.
std::uint64_t session::spread(std::uint64_t interval) const noexcept {
  constexpr std::uint64_t steps = 1024;
  const std::uint64_t longest = interval * (timing_.detect_multiplier == 1 ? 90 : 100) / 100;
  const std::uint64_t shortest = std::min(interval * 75 / 100 + most_early, longest);
  const std::uint64_t step = random_(random_context_) % (steps + 1);
  return shortest + (longest - shortest) * step / steps;
}

control_packet session::packet(bool final) const noexcept {
  control_packet sent;
  sent.state = state_;
  sent.reason = reason_;
  sent.poll = polling_ && !final;
  sent.final = final;
  sent.detect_multiplier = timing_.detect_multiplier;
  sent.my_discriminator = discriminator_;
  sent.your_discriminator = remote_.my_discriminator;
  sent.desired_min_tx = announced_.tx;
  sent.required_min_rx = announced_.rx;
  return sent;
}

}  // namespace ot::bfd
