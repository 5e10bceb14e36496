// The prefixes that a FIB's client registered, and what was last reported of each. Every FIB of
// ours keeps them so: only a look-up that differs from the last one is news, so looking too often
// costs time and nothing else.
//
// A client that is notified looks the prefix up itself. If that look-up could see another route
// than the one it is notified of, then the last change might be taken for one that was reported
// already, and the client would stay wrong. So its look-up is answered by what the notification
// stands for (being_reported). Addresses are in network byte order. On the thread of the FIB's
// loop.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>

#include "platform/fib_client.h"

namespace ot {

struct fib_prefix {
  std::uint32_t table = 0;
  std::uint32_t address = 0;
  std::uint32_t length = 0;

  friend auto operator<=>(const fib_prefix&, const fib_prefix&) = default;
};

class watched_prefixes {
 public:
  // Fills `ret` with the longest match of the prefix's address in its table. 0, or a status code
  // for a look-up that failed and says nothing.
  using find_route = int (*)(void* context, const fib_prefix& prefix, rtclient_result* ret);

  // `context` outlives this.
  watched_prefixes(find_route find, void* context) noexcept : find_(find), context_(context) {}

  // 0, fib_already_registered, 12. In the first two cases the prefix is news at the next look.
  int add(const fib_prefix& prefix) noexcept;
  // 0 or 2.
  int remove(const fib_prefix& prefix) noexcept;
  void clear() noexcept { prefixes_.clear(); }
  // Drops the prefixes in tables that are no longer.
  void keep_tables(bool (*exists)(std::uint32_t table)) noexcept;
  [[nodiscard]] bool empty() const noexcept { return prefixes_.empty(); }
  [[nodiscard]] std::size_t size() const noexcept { return prefixes_.size(); }

  // Look prefixes up again: all; those whose longest match may be another by a change of one of the
  // routes, and those added since the last look; those that contain a route, which are few.
  void look_at_all();
  void look_at_related(std::span<const fib_prefix> routes);
  void look_at_containing(const fib_prefix& route);

  // Calls `changed` for each prefix that a look found to be other than last reported. It may
  // register and unregister.
  void notify(void (*changed)(const rtclient_notification*));

  // The look-up that the notification stands for which is being handed over; null outside of one,
  // or for another address or table. Valid until the next call.
  [[nodiscard]] const rtclient_result* being_reported(std::uint32_t table,
                                                      std::uint32_t address) const noexcept;
  // The client could not be given that look-up: the prefix is news again at the next look.
  void report_failed() noexcept;

 private:
  struct last_look {
    rtclient_result result;
    bool reported = false;
    bool is_news = false;  // found, and about to be reported
  };

  struct report {
    fib_prefix prefix;
    rtclient_result result;
  };

  void look(const fib_prefix& prefix, last_look& last);

  find_route find_;
  void* context_;
  std::map<fib_prefix, last_look> prefixes_;
  std::optional<report> being_reported_;
  bool any_news_ = false;
};

}  // namespace ot
