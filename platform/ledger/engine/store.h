// Where the engine keeps items: one store for the configuration, one for operational items. Paths
// are absolute and valid (ledger_path.h). Main thread. Operations may throw bad_alloc.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#include "platform/ledger/calls/backend.h"

namespace ot {

struct ledger_write {
  std::string_view path;
  bool remove = false;
  ledger_kind kind = ledger_kind::u32;
  std::span<const std::byte> value = {};
};

class ledger_store {
 public:
  virtual ~ledger_store() = default;

  // 0, ledger_no_data, or a status code.
  virtual int get(std::string_view path, ledger_value& ret) = 0;

  // All of it or nothing, in the order given. A new item gets the next sequence number, a set keeps
  // its item's. A remove of an absent item is ledger_no_data, and nothing is written. 0,
  // ledger_full, ledger_storage_failure.
  virtual int write(std::span<const ledger_write> writes) = 0;

  // False when new items are no longer taken; sets and removes still are.
  virtual bool takes_new_items() = 0;

  // Appends at most `limit` items whose path begins with `prefix` and is greater than `after`, in
  // path order.
  virtual int page(std::string_view prefix, std::string_view after, std::size_t limit,
                   std::vector<ledger_stored>& ret) = 0;

  // Appends at most `limit` items with a sequence number above `after`, in that order. For the
  // configuration only.
  virtual int page_in_order(std::uint64_t after, std::size_t limit,
                            std::vector<ledger_stored>& ret) = 0;
};

}  // namespace ot
