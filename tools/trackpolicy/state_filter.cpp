#include "tools/trackpolicy/state_filter.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace ot::trackpolicy {

void state_filter::configure(const policy& of, std::uint64_t now_us) {
  penalty_ = of.half_life_ms == 0 ? 0 : penalty_at(now_us);
  flapped_us_ = now_us;
  const bool was_suppressed = now_us < suppressed_until_us_;
  hold_us_ = std::uint64_t{of.hold_ms} * 1000;
  half_life_us_ = of.half_life_ms * 1000.0;
  suppress_ = of.suppress;
  reuse_ = of.reuse;
  begin_with_penalty(was_suppressed, now_us);
}

void state_filter::recall(const flap_record& earlier, std::uint64_t now_us) {
  if (half_life_us_ == 0 || earlier.flapped_us > now_us || !(earlier.penalty > 0)) {
    return;
  }
  penalty_ = std::min(earlier.penalty, reuse_ * penalty_ceiling);
  flapped_us_ = earlier.flapped_us;
  penalty_ = penalty_at(now_us);
  flapped_us_ = now_us;
  begin_with_penalty(now_us < earlier.suppressed_until_us, now_us);
}

void state_filter::begin_with_penalty(bool was_suppressed, std::uint64_t now_us) noexcept {
  suppressed_until_us_ = 0;
  if (penalty_ >= suppress_ || (was_suppressed && penalty_ > reuse_)) {
    suppress_from(now_us);
  }
}

std::optional<flap_record> state_filter::flaps(std::uint64_t now_us) const {
  if (penalty_at(now_us) < 1) {
    return std::nullopt;
  }
  return flap_record{
      .penalty = penalty_, .flapped_us = flapped_us_, .suppressed_until_us = suppressed_until_us_};
}

void state_filter::see(const situation& now, std::uint64_t now_us) {
  back_ = back_ || !present_;
  if (!present_ || present_->state != now.state) {
    if (before_ == track_state::up && now.state != track_state::up) {
      count_flap(now_us);
    }
    present_ = now;
    since_us_ = now_us;
  }
  before_ = now.state;
  news_ = true;
}

std::optional<situation> state_filter::take(std::uint64_t now_us) {
  if (!present_ || !news_) {
    return std::nullopt;
  }
  if (now_us >= allowed_us()) {
    news_ = back_ = false;
    taken_ = present_;
    return taken_;
  }
  // What was acted upon counts until then.
  return std::exchange(back_, false) ? taken_ : std::nullopt;
}

std::uint64_t state_filter::due_us() const noexcept {
  return present_ && news_ ? allowed_us() : reaction::never;
}

// When the present state may be acted upon. At once when it was already, and at the start, unless
// up is suppressed since before it: what an earlier trackpolicy has done for it stays then.
std::uint64_t state_filter::allowed_us() const noexcept {
  if (taken_ && taken_->state == present_->state) {
    return 0;
  }
  const std::uint64_t lasting = taken_ ? since_us_ + hold_us_ : 0;
  return present_->state == track_state::up ? std::max(lasting, suppressed_until_us_) : lasting;
}

double state_filter::penalty_at(std::uint64_t now_us) const noexcept {
  return half_life_us_ == 0
             ? 0
             : penalty_ * std::exp2(-static_cast<double>(now_us - flapped_us_) / half_life_us_);
}

void state_filter::count_flap(std::uint64_t now_us) noexcept {
  if (half_life_us_ == 0) {
    return;
  }
  penalty_ = std::min(penalty_at(now_us) + flap_penalty, reuse_ * penalty_ceiling);
  flapped_us_ = now_us;
  ++flap_count_;
  if (penalty_ >= suppress_ || now_us < suppressed_until_us_) {
    suppress_from(now_us);
  }
}

// Until the penalty has sunk to what is reused.
void state_filter::suppress_from(std::uint64_t now_us) noexcept {
  const double halvings = std::log2(penalty_ / reuse_);
  suppressed_until_us_ =
      now_us + static_cast<std::uint64_t>(std::ceil(std::max(halvings, 0.0) * half_life_us_));
}

filter_report state_filter::status(std::uint64_t now_us) const {
  filter_report made;
  made.damped = half_life_us_ != 0;
  made.penalty = penalty_at(now_us);
  made.suppressed_us = suppressed_until_us_ > now_us ? suppressed_until_us_ - now_us : 0;
  if (present_ && news_ && allowed_us() > now_us) {
    made.held = present_->state;
    made.held_us = allowed_us() - now_us;
  }
  return made;
}

}  // namespace ot::trackpolicy
