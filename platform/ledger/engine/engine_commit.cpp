// The engine's way with configuration: commits, and the replay of what is stored when the service
// starts. Neither runs inside the other, nor inside itself: a verify or apply function that tried
// would change the configuration under the commit that called it.
#include <new>

#include "platform/ledger/engine/commit_run.h"
#include "platform/ledger/engine/engine.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr std::size_t replay_items = 64;  // read at a time

class busy_scope {
 public:
  explicit busy_scope(bool& busy) noexcept : busy_(busy) { busy_ = true; }
  ~busy_scope() { busy_ = false; }
  busy_scope(const busy_scope&) = delete;
  busy_scope& operator=(const busy_scope&) = delete;

 private:
  bool& busy_;
};

}  // namespace

int ledger_engine::commit(std::span<const ledger_proposal> changes,
                          std::vector<ledger_refusal>& ret) {
  if (busy_) {
    return ledger_not_available;
  }
  const busy_scope busy{busy_};
  ledger_commit_run run{trees_, configuration_, environment_};
  if (!run.prepare(changes, ret)) {
    return ret.front().code;
  }
  if (changes.empty()) {
    return status_ok;
  }
  if (const int status = run.store(); status != status_ok) {
    ret.push_back({.path = changes.front().path, .code = status, .text = err_string(status)});
    return status;
  }
  ++generation_;
  run.apply(ret);
  return ret.empty() ? status_ok : ret.front().code;
}

int ledger_engine::replay_item(const ledger_stored& item) {
  ledger_match match;
  if (const int status = trees_.match(item.path, match); status != status_ok) {
    return status;
  }
  const ledger_change change{
      .event = ledger_event_create, .fields = match.fields, .new_value = &item.value};
  return ledger_apply_change(environment_, *match.row, change);
}

int ledger_engine::replay(std::string_view root) {
  if (busy_) {
    return -1;
  }
  const busy_scope busy{busy_};
  int failures = 0;
  std::uint64_t after = 0;
  for (;;) {
    std::vector<ledger_stored> items;
    if (configuration_.page_in_order(after, replay_items, items) != status_ok) {
      return -1;
    }
    for (const ledger_stored& item : items) {
      after = item.sequence;
      const int status = item.path.starts_with(root) ? replay_item(item) : status_ok;
      if (status != status_ok) {
        environment_.log("replaying " + item.path + " failed: " + err_string(status));
        ++failures;
      }
    }
    if (items.size() < replay_items) {
      return failures;
    }
  }
}

}  // namespace ot
