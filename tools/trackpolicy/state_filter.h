// Between a track and a policy: which of the states that the track comes to are acted upon, and
// when. After the first one a state has to last for `hold`. And each time the track leaves up the
// policy gets a penalty, which halves every `half_life`: from `suppress` on, and until it has sunk
// to `reuse`, up is not acted upon. Other states are, so that a flapping track is left at once and
// used again late. What was held back and is still so in the end is acted upon then. Pure: its time
// is given to it.
#pragma once

#include <cstdint>
#include <optional>

#include "tools/trackpolicy/reaction.h"

namespace ot::trackpolicy {

inline constexpr double flap_penalty = 1000;
// A penalty grows to this many times `reuse`: nothing is suppressed for more than four half-lives
// after its last flap.
inline constexpr std::uint32_t penalty_ceiling = 16;

// What `policy list` shows of it.
struct filter_report {
  bool damped = false;
  double penalty = 0;
  std::uint64_t suppressed_us = 0;  // for so long up is not acted upon; 0: it is
  std::optional<track_state> held;  // the state that waits
  std::uint64_t held_us = 0;        // for so long, unless it changes
};

// What has to outlive a restart: a track that flaps does not begin anew with it. Times are those
// that the filter is given, which go on until the next boot.
struct flap_record {
  double penalty = 0;  // at `flapped_us`
  std::uint64_t flapped_us = 0;
  std::uint64_t suppressed_until_us = 0;
};

class state_filter {
 public:
  // From now on with what this policy says; without damping the penalty is gone.
  void configure(const policy& of, std::uint64_t now_us);

  // Takes over the flaps of an earlier one, after configure(): while up was suppressed what was
  // done stays.
  void recall(const flap_record& earlier, std::uint64_t now_us);
  // Nothing where there is no penalty to speak of.
  [[nodiscard]] std::optional<flap_record> flaps(std::uint64_t now_us) const;
  // How many flaps there were.
  [[nodiscard]] std::uint64_t flap_count() const noexcept { return flap_count_; }

  // The track's state, whenever it is learnt.
  void see(const situation& now, std::uint64_t now_us);
  // The service is not reachable: whether a state lasts is not known.
  void service_gone() noexcept { present_.reset(); }

  // The state to act upon now, again where it is not new; nothing when there is none. To be called
  // until there is none: after see(), and when the time of due_us() has come.
  std::optional<situation> take(std::uint64_t now_us);
  // reaction::never: take() has nothing that it does not have at once.
  [[nodiscard]] std::uint64_t due_us() const noexcept;

  // How it stands.
  [[nodiscard]] filter_report status(std::uint64_t now_us) const;

 private:
  [[nodiscard]] double penalty_at(std::uint64_t now_us) const noexcept;
  [[nodiscard]] std::uint64_t allowed_us() const noexcept;
  void begin_with_penalty(bool was_suppressed, std::uint64_t now_us) noexcept;
  void count_flap(std::uint64_t now_us) noexcept;
  void suppress_from(std::uint64_t now_us) noexcept;

  std::uint64_t hold_us_ = 0;
  double half_life_us_ = 0;  // 0: no damping
  double suppress_ = 0;
  double reuse_ = 0;

  std::optional<situation> present_;  // nothing while the service is gone
  track_state before_ = track_state::unknown;
  std::uint64_t since_us_ = 0;  // when it came to that
  bool news_ = false;           // `present_` has not been taken
  bool back_ = false;           // the service is back, and nothing has been taken since
  std::optional<situation> taken_;

  double penalty_ = 0;  // at `flapped_us_`
  std::uint64_t flapped_us_ = 0;
  std::uint64_t suppressed_until_us_ = 0;
  std::uint64_t flap_count_ = 0;
};

}  // namespace ot::trackpolicy
