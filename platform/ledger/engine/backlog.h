// Notices on their way to one reader.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ledger_provider.h"
#include "platform/ledger_subscriber.h"

namespace ot {

using ledger_notices = std::vector<ledger_notice>;

// The notices of the entries below `base` that fall below the `followed` path.
ledger_notices ledger_notices_below(std::string_view followed, std::string_view base,
                                    std::span<const ledger_dpv_notification> entries);

using shared_notices = std::shared_ptr<const ledger_notices>;

// One batch of entries on its way to many readers, who mostly follow the same path: what they get
// is made once.
class ledger_notice_batch {
 public:
  // What is handed in outlives the batch.
  ledger_notice_batch(std::string_view base,
                      std::span<const ledger_dpv_notification> entries) noexcept
      : base_(base), entries_(entries) {}

  // May throw bad_alloc.
  shared_notices below(const std::string& followed);

 private:
  std::string_view base_;
  std::span<const ledger_dpv_notification> entries_;
  std::map<std::string, shared_notices> made_;  // by the path that is followed
};

// A bounded queue of batches. What does not fit is not kept: a single "resync" then takes the place
// of everything that waits.
class ledger_backlog {
 public:
  static constexpr std::size_t max_batches = 256;
  static constexpr std::size_t max_notices = 4096;

  void push(shared_notices batch);
  [[nodiscard]] bool empty() const noexcept { return batches_.empty(); }
  // The oldest batch; empty when there is none.
  ledger_notices pop();

 private:
  std::deque<shared_notices> batches_;
  std::size_t notices_ = 0;
};

}  // namespace ot
