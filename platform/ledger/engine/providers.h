// The registered data providers, and the way of a request to one of them.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ledger/calls/backend.h"
#include "platform/ledger/engine/environment.h"
#include "platform/ledger_provider.h"

namespace ot {

inline constexpr std::size_t ledger_page_bytes_max = 1'000'000;  // names and values of a page

class ledger_providers {
 public:
  explicit ledger_providers(ledger_environment& environment) noexcept : environment_(environment) {}

  // 0, 22 for a bad root or branch, 76 for a branch that is served already.
  int add(std::string_view root, std::span<const ledger_dpv_provider> rows);

  // Whether a provider answers for the item at `path`.
  [[nodiscard]] bool serves(std::string_view path) const noexcept;

  int get(std::string_view path, ledger_value& ret) const;
  // One page, cut at the query's size and at ledger_page_bytes_max.
  int list(const ledger_list_query& query, ledger_page& ret) const;

 private:
  struct branch {
    std::string path;  // ends in '/'
    const ledger_dpv_provider* row;
  };
  [[nodiscard]] const branch* branch_of(std::string_view path) const noexcept;

  ledger_environment& environment_;
  std::vector<branch> branches_;
};

}  // namespace ot
