// Which routes policies want, which of ours there are, and what has to change. Knows no sockets.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tools/trackpolicy/kernel/links.h"
#include "tools/trackpolicy/kernel/network.h"
#include "tools/trackpolicy/kernel/refusals.h"
#include "tools/trackpolicy/kernel/route.h"

namespace ot::trackpolicy {

struct route_change {
  bool add = false;
  kernel_route what;
  int error = 0;     // an errno value; filled in by who carries it out
  std::string text;  // what the kernel adds to it
};

// Who changes routes and hears of trouble.
class route_kernel : public listener {
 public:
  // Carries out all, in this order. Deletions take only routes of our protocol, additions replace
  // nothing.
  virtual void carry_out(std::vector<route_change>& changes) = 0;
};

class route_keeper {
 public:
  // So long one waits with adding again what somebody has deleted.
  static constexpr std::uint64_t again_us = 50'000;

  void set(const std::string& owner, const route& what, wish wanted);
  void forget(const std::string& owner);
  [[nodiscard]] outcome status(const std::string& owner) const;
  [[nodiscard]] bool has_owners() const noexcept { return !rows_.empty(); }

  // What the kernel has of ours; everything is compared.
  void take_all(const std::vector<kernel_route>& there);
  // A route of ours came or went. `by_us`: as we asked for.
  void take_one(const kernel_route& what, bool there, bool by_us);
  [[nodiscard]] bool has(const route_key& key) const { return there_.contains(key); }
  // What was refused may succeed now.
  void try_again();

  // Whether settle() has something to do.
  [[nodiscard]] bool unsettled() const noexcept { return !changed_.empty() || !touched_.empty(); }
  [[nodiscard]] bool none_there() const noexcept { return there_.empty(); }
  // Whether something was refused.
  [[nodiscard]] bool refused() const noexcept;
  // When to come again; UINT64_MAX: nothing is left.
  std::uint64_t settle(std::uint64_t now_us, const link_table& links, route_kernel& kernel);

 private:
  struct row {
    route what;
    wish wanted = wish::keep;
    std::optional<kernel_route> meant;  // none: it is refused
    refusals refused;
    std::uint64_t added_us = 0;  // for the latest wish
    std::uint64_t changes = 0;
  };
  using rows = std::map<std::string, row>;  // by owner

  void resolve(rows::iterator at, const link_table& links, route_kernel& kernel);
  void unlist(rows::iterator at);
  [[nodiscard]] const rows::value_type* winner(const route_key& key) const;
  [[nodiscard]] bool kept(const route_key& key) const;
  [[nodiscard]] bool is_there(const kernel_route& meant) const;
  void plan(const route_key& key, std::vector<route_change>& ret_deletions,
            std::vector<route_change>& ret_additions) const;
  void put_off(std::vector<route_change>& additions, std::uint64_t now_us);
  void take_result(const route_change& change, route_kernel& kernel);

  rows rows_;
  std::map<route_key, std::map<std::string, row*>> by_key_;  // those that have a meaning
  std::multimap<route_key, kernel_route> there_;
  std::set<std::string> changed_;  // owners whose row is to be resolved
  std::set<route_key> touched_;    // keys to be looked at
  std::set<route_key> later_;      // keys that were just added to
};

}  // namespace ot::trackpolicy
