// A store without a file: the in-memory platform's configuration and operational items.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <string>

#include "platform/ledger/engine/environment.h"

namespace ot {

class ledger_map_store : public ledger_store {
 public:
  int get(std::string_view path, ledger_value& ret) override;
  int write(std::span<const ledger_write> writes) override;
  std::uint64_t version() override { return last_sequence_; }
  bool takes_new_items() override { return items_.size() < capacity_; }
  int page(std::string_view prefix, std::string_view after, std::size_t limit,
           std::vector<ledger_stored>& ret) override;
  int page_in_order(std::uint64_t after, std::size_t limit,
                    std::vector<ledger_stored>& ret) override;

  // New items are taken while there are fewer than this.
  void set_capacity(std::size_t items) noexcept { capacity_ = items; }
  // The next write is refused with `status`.
  void fail_next_write(int status) noexcept { failure_ = status; }

 private:
  struct item {
    ledger_kind kind;
    std::vector<std::byte> value;
    std::uint64_t sequence;
    std::uint64_t first;
  };
  [[nodiscard]] static ledger_stored copy(const std::string& path, const item& from);
  [[nodiscard]] std::uint64_t first_of_owner(std::string_view prefix,
                                             std::uint64_t otherwise) const noexcept;
  [[nodiscard]] bool takes(std::span<const ledger_write> writes, int& ret_status) const;

  std::map<std::string, item, std::less<>> items_;
  std::map<std::uint64_t, std::string> order_;
  std::uint64_t last_sequence_ = 0;
  std::size_t capacity_ = std::numeric_limits<std::size_t>::max();
  int failure_ = 0;
};

}  // namespace ot
