// The prefixes that a client registered, and what was last reported of each. Main thread.
#pragma once

#include <cstdint>
#include <map>
#include <span>

#include "platform/fib_client.h"
#include "platform/linux/routes/lookup.h"

namespace ot {

// A registered prefix; the address in network byte order.
struct fib_prefix {
  std::uint32_t table = 0;
  std::uint32_t address = 0;
  std::uint32_t length = 0;

  friend auto operator<=>(const fib_prefix&, const fib_prefix&) = default;
};

class watched_prefixes {
 public:
  // `lookup` outlives this.
  explicit watched_prefixes(route_lookup& lookup) noexcept : lookup_(lookup) {}

  // 0, fib_already_registered, 12. In the first two cases the prefix is news at the next look.
  int add(const fib_prefix& prefix) noexcept;
  // 0 or 2.
  int remove(const fib_prefix& prefix) noexcept;
  void clear() noexcept { prefixes_.clear(); }
  [[nodiscard]] bool empty() const noexcept { return prefixes_.empty(); }

  // Look prefixes up again: all; those whose longest match may be another by a change of one of the
  // routes, and those added since the last look; those that contain a route, which are few.
  void look_at_all() noexcept;
  void look_at_related(std::span<const route_record> routes) noexcept;
  void look_at_containing(const route_record& route) noexcept;

  // Calls `changed` for each prefix that a look found to be other than last reported.
  void notify(void (*changed)(const rtclient_notification*));

 private:
  struct last_reported {
    rtclient_result result;
    bool reported = false;
    bool is_news = false;  // found, and about to be reported
  };

  void look(const fib_prefix& prefix, last_reported& last) noexcept;

  route_lookup& lookup_;
  std::map<fib_prefix, last_reported> prefixes_;
  bool any_news_ = false;
};

}  // namespace ot
