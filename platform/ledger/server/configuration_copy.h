// The copy of the last good configuration, a file beside its store: all items in their order, with
// a checksum over everything. It is what `object_tracking --restore` goes back to.
#pragma once

#include <systemd/sd-event.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "platform/ledger/server/lmdb_store.h"

namespace ot {

// Where the configuration's store and its copy lie, below OT_ROOT.
std::string configuration_path();
std::string configuration_copy_path();

struct configuration_copy {
  std::int64_t made = 0;  // seconds since 1970
  std::vector<ledger_stored> items;

  // "the copy of 2026-11-22 10:11:12 (3 items)"
  [[nodiscard]] std::string name() const;
};

// 0, or an errno value with a text for the operator; ENOENT when there is no copy, EBADMSG when it
// is damaged.
int read_configuration_copy(const std::string& path, configuration_copy& ret,
                            std::string& ret_error);

// Durable, as a whole or not at all; not written when the one that is there has the same items. 0
// or an errno value, as above.
int write_configuration_copy(const std::string& path, const configuration_copy& copy,
                             std::string& ret_error);

// Keeps the copy up to date: some seconds after a change, once for all changes meanwhile, on a
// thread of its own that lives as long as a writing takes. The owner's thread is the loop's.
class configuration_keeper {
 public:
  explicit configuration_keeper(const lmdb_store& store) noexcept : store_(store) {}
  ~configuration_keeper();
  configuration_keeper(const configuration_keeper&) = delete;
  configuration_keeper& operator=(const configuration_keeper&) = delete;

  // The store is open and good. 0 or an errno value.
  int start(sd_event* loop) noexcept;
  // Notices changes; called after every handler.
  void look() noexcept;
  // Writes what is not written yet. The store is still open.
  void finish() noexcept;

 private:
  static int on_due(sd_event_source* source, std::uint64_t now, void* keeper) noexcept;

  void begin() noexcept;
  void write() noexcept;
  void due_in(std::uint64_t usec) noexcept;

  const lmdb_store& store_;
  std::string path_;
  sd_event_source* due_ = nullptr;
  bool waiting_ = false;       // `due_` runs
  std::uint64_t written_ = 0;  // the store's last write when the copy was begun
  std::thread worker_;
  std::atomic<bool> busy_ = false;
  std::atomic<bool> failed_ = false;  // the last writing
};

}  // namespace ot
