// The configuration as the accepted stages of a commit will leave it, while the later ones are
// looked at and nothing is stored yet.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ledger/engine/environment.h"

namespace ot {

class ledger_staged_items {
 public:
  // The store stays the caller's and outlives this.
  explicit ledger_staged_items(ledger_store& store) noexcept : store_(store) {}

  // Values stay the proposal's, which outlives this.
  void add(const ledger_proposal& accepted);
  // An item that goes along with another one, and one that goes on elsewhere.
  void remove(std::string_view path);
  void keep(std::string_view path, const ledger_proposal& accepted);

  // As ledger_store::get.
  int get(std::string_view path, ledger_value& ret);
  // Appends the paths of all items that begin with `prefix`. 0 or a status code.
  int below(std::string_view prefix, std::vector<std::string>& ret);

 private:
  ledger_store& store_;
  std::map<std::string, const ledger_proposal*, std::less<>> changed_;  // null: removed
};

}  // namespace ot
