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
#include <utility>

#include "platform/common/fib_answer.h"
#include "platform/fib_client.h"

namespace ot {

class watched_prefixes {
 public:
  // Fills `ret` with the longest match of the prefix's address in its table. 0, or a status code
  // for a look-up that failed and says nothing.
  using find_route = int (*)(void* context, const fib_prefix& prefix, fib_answer* ret);

  // About to look at these, in this order; with none, no longer. For who can find many at a time.
  using about_to_find = void (*)(void* context, std::span<const fib_prefix> prefixes);

  // `context` outlives this.
  watched_prefixes(find_route find, void* context, about_to_find ahead = nullptr) noexcept
      : find_(find), ahead_(ahead), context_(context) {}

  // 0, fib_already_registered, 12, or 22 for a length over 32. In the first two cases the prefix is
  // news at the next look.
  int add(const fib_prefix& prefix) noexcept;
  // 0 or 2.
  int remove(const fib_prefix& prefix) noexcept;
  void clear() noexcept { prefixes_.clear(); }
  // Drops the prefixes in tables that are no longer.
  void keep_tables(bool (*exists)(std::uint32_t table)) noexcept;
  [[nodiscard]] bool empty() const noexcept { return prefixes_.empty(); }
  [[nodiscard]] std::size_t size() const noexcept { return prefixes_.size(); }
  // Each registered prefix, by table, address and length.
  template <typename Visit>
  void for_each(Visit visit) const {
    for (const auto& entry : prefixes_) {
      visit(prefix_of(entry.first));
    }
  }

  // Whether a change of that route may give a prefix another longest match: one of them contains
  // the other. Takes well under a microsecond, since most of the routes of a router concern nobody.
  [[nodiscard]] bool concerned_by(const fib_prefix& route) const noexcept;

  // Look prefixes up again: all; those that one of the routes concerns, and those added since the
  // last look; those that contain a route, which are few; those whose last answer depends on one of
  // the links (whether there were any).
  void look_at_all();
  void look_at_related(std::span<const fib_prefix> routes);
  void look_at_containing(const fib_prefix& route);
  bool look_at_using(std::span<const std::uint32_t> links);
  // Whether a look-up has failed since the last call: what is true of its prefix is not known.
  bool take_failed() noexcept { return std::exchange(any_failed_, false); }

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
  // Of a map in which prefixes inside another one follow it.
  struct key {
    std::uint32_t table = 0;
    std::uint32_t address = 0;  // host byte order
    std::uint32_t length = 0;

    friend auto operator<=>(const key&, const key&) = default;
  };
  struct last_look {
    rtclient_result result;
    route_links links;
    std::uint64_t pass = 0;  // in which it was looked at
    bool reported = false;
    bool is_news = false;  // found, and about to be reported
  };
  struct report {
    fib_prefix prefix;
    rtclient_result result;
  };
  using prefix_map = std::map<key, last_look>;

  static key key_of(const fib_prefix& prefix) noexcept;
  static fib_prefix prefix_of(const key& key) noexcept;
  template <typename Map, typename Visit>
  static void visit_containing(Map& prefixes, std::uint64_t lengths, const key& route, Visit visit);
  template <typename Map, typename Visit>
  static void visit_inside(Map& prefixes, const key& route, Visit visit);

  template <typename Condition>
  bool look_where(Condition condition);
  void look(const key& prefix, last_look& last);

  find_route find_;
  about_to_find ahead_;
  void* context_;
  prefix_map prefixes_;
  std::uint64_t lengths_ = 0;  // bit N: there is or was a prefix of length N
  std::uint64_t pass_ = 0;
  bool any_new_ = false;  // added, and not looked at yet
  bool any_news_ = false;
  bool any_failed_ = false;
  std::optional<report> being_reported_;
};

}  // namespace ot
