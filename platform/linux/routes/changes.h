// What the kernel's events told since everything was looked at: the routes that changed, while they
// are few, or only that something did which concerns all.
#pragma once

#include <cstddef>
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
  void note_everything() noexcept { everything_ = true; }

  [[nodiscard]] bool none() const noexcept { return !everything_ && routes_.empty(); }
  [[nodiscard]] bool everything() const noexcept { return everything_; }

  // The routes that were not asked for by this before.
  std::span<const fib_prefix> unseen() noexcept {
    const std::size_t seen = std::exchange(seen_, routes_.size());
    return std::span<const fib_prefix>{routes_}.subspan(seen);
  }

  // All of them; none are left.
  std::vector<fib_prefix> take() noexcept {
    seen_ = 0;
    everything_ = false;
    return std::exchange(routes_, {});
  }

 private:
  std::vector<fib_prefix> routes_;
  std::size_t seen_ = 0;
  bool everything_ = false;
};

}  // namespace ot
