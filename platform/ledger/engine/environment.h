// What the engine needs of the platform it runs on: two stores, one for the configuration and one
// for operational items, a log, and a way to the readers that follow data. Main thread.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ledger/calls/backend.h"
#include "platform/ledger_provider.h"

namespace ot {

class ledger_environment {
 public:
  virtual ~ledger_environment() = default;

  // A line for the operator's log.
  virtual void log(const std::string& line) = 0;

  // Notifies the readers that data below `base` changed. 0 or a status code.
  virtual int notify(std::string_view base, std::span<const ledger_dpv_notification> entries) = 0;

  // Runs `body(argument)`, which calls into the service.
  virtual void in_service(void (*body)(void*), void* argument) { body(argument); }
};

// Runs a callback of the service and returns what it returned.
template <typename Body>
int ledger_in_service(ledger_environment& environment, Body body) {
  struct call {
    Body& body;
    int result;
  } state{body, 0};
  environment.in_service(
      [](void* argument) {
        auto& current = *static_cast<call*>(argument);
        current.result = current.body();
      },
      &state);
  return state.result;
}

// --- Stores ------------------------------------------------------------------------------------
// Paths are absolute and valid (item.h). Operations may throw bad_alloc.

struct ledger_write {
  std::string_view path;
  bool remove = false;
  std::string_view move_to = {};  // of a remove: the item goes on under this path, as it is
  ledger_kind kind = ledger_kind::u32;
  std::span<const std::byte> value = {};
  std::size_t owner = 0;  // characters of the path that name its owner; 0: it has none

  // What the paths of all items of its owner begin with.
  [[nodiscard]] std::string_view owner_prefix() const noexcept { return path.substr(0, owner + 1); }
};

class ledger_store {
 public:
  virtual ~ledger_store() = default;

  // 0, ledger_no_data, or a status code.
  virtual int get(std::string_view path, ledger_value& ret) = 0;

  // All of it or nothing, in the order given. Every item written gets the next sequence number. A
  // new item gets the `first` of its owner's other items, or its own sequence number when it is
  // their first. A remove of an absent item is ledger_no_data, and nothing is written. 0,
  // ledger_full, ledger_storage_failure.
  virtual int write(std::span<const ledger_write> writes) = 0;

  // A number that each write changes, from the moment on that others are told what was written.
  virtual std::uint64_t version() = 0;

  // False when new items are no longer taken; sets and removes still are.
  virtual bool takes_new_items() = 0;

  // Appends at most `limit` items whose path begins with `prefix` and is greater than `after`, in
  // path order.
  virtual int page(std::string_view prefix, std::string_view after, std::size_t limit,
                   std::vector<ledger_stored>& ret) = 0;

  // Appends at most `limit` items with a sequence number above `after`, in that order, without
  // their values. For the configuration only.
  virtual int page_in_order(std::uint64_t after, std::size_t limit,
                            std::vector<ledger_stored>& ret) = 0;
};

}  // namespace ot
