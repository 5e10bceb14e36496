// What the kernel's events told since everything was looked at: the routes and links that changed,
// while they are few, or only that something did which concerns all. A link may concern prefixes
// that nobody knows to depend on it, which are left for later.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <span>
#include <utility>
#include <vector>

#include "platform/common/watched_prefixes.h"

namespace ot {

class route_changes {
 public:
  // More routes than this are a change of everything.
  static constexpr std::size_t routes_max = 64;
  static constexpr std::size_t links_max = 16;

  void note(const fib_prefix& route) noexcept {
    try {
      if (!everything_ && routes_.size() < routes_max) {
        routes_.push_back(route);
        return;
      }
    } catch (const std::bad_alloc&) {
      // no room for what changed
    }
    everything_ = true;
  }
  void note_link(std::uint32_t link) noexcept {
    rest_ = true;
    try {
      if (std::find(links_.begin(), links_.end(), link) != links_.end()) {
        return;
      }
      if (links_.size() < links_max) {
        links_.push_back(link);
        return;
      }
    } catch (const std::bad_alloc&) {
      // no room for what changed
    }
    everything_ = true;
  }
  void note_everything() noexcept { everything_ = true; }

  [[nodiscard]] bool none() const noexcept { return !for_now() && !rest_; }
  // Whether there is more than what links leave for later.
  [[nodiscard]] bool for_now() const noexcept { return of_links() || !routes_.empty(); }
  // Whether something other than routes changed, of which the kernel may have more to do.
  [[nodiscard]] bool of_links() const noexcept { return everything_ || !links_.empty(); }
  // Whether links left something for later.
  [[nodiscard]] bool rest() const noexcept { return rest_; }
  [[nodiscard]] bool everything() const noexcept { return everything_; }

  // The routes that were not asked for by this before.
  std::span<const fib_prefix> unseen() noexcept {
    const std::size_t seen = std::exchange(seen_, routes_.size());
    return std::span<const fib_prefix>{routes_}.subspan(seen);
  }

  // The routes; none are left.
  std::vector<fib_prefix> take_routes() noexcept {
    seen_ = 0;
    return std::exchange(routes_, {});
  }
  // The links; none are left, but for what they leave for later.
  std::vector<std::uint32_t> take_links() noexcept { return std::exchange(links_, {}); }

  void clear() noexcept { *this = {}; }

 private:
  std::vector<fib_prefix> routes_;
  std::vector<std::uint32_t> links_;
  bool rest_ = false;
  std::size_t seen_ = 0;
  bool everything_ = false;
};

}  // namespace ot
