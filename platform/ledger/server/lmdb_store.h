// A store in a file: LMDB with a fixed map. Opened by the service's process only, once, and not
// used after a fork.
#pragma once

#include <lmdb.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ledger/engine/environment.h"
#include "platform/ledger/server/lmdb_item.h"

namespace ot {

enum class lmdb_durability {
  synced,  // a write is on the disk when it returns; for the configuration
  batched  // writes are gathered until flush, survive the process and not the machine
};

struct lmdb_options {
  std::string path;  // of the file; its directory exists
  std::size_t map_bytes = 0;
  lmdb_durability durability = lmdb_durability::synced;
  std::string stamp;  // when not empty, items of a file with another stamp are dropped
  // Where the file goes when LMDB ends the process because of what it finds in it; "": it stays.
  std::string aside = {};
};

struct lmdb_item_head;

// The loop's thread; a synced store is written by one other thread, too, one at a time.
class lmdb_store : public ledger_store {
 public:
  lmdb_store() noexcept = default;
  ~lmdb_store() override;
  lmdb_store(const lmdb_store&) = delete;
  lmdb_store& operator=(const lmdb_store&) = delete;

  // 0, or an errno or LMDB code.
  int open(const lmdb_options& options);
  // What `open` failed by: the file, and what is wrong with it.
  [[nodiscard]] std::string open_error(int code) const;
  [[nodiscard]] static const char* lmdb_text(int code) noexcept;

  // Whether the file has its whole space on the disk. If not, writes fail while the disk is full.
  [[nodiscard]] bool has_its_space() const noexcept { return has_its_space_; }

  // A number that each write changes, a moment before reads see it. Any thread.
  [[nodiscard]] std::uint64_t last_write() const noexcept;
  // All items of a synced store, in order. Any thread, while the store is open. 0 or a status code;
  // may throw bad_alloc.
  int snapshot(std::vector<ledger_stored>& ret) const;
  // Takes the pages that reads have mapped out of the process's memory: after a walk over the whole
  // file they would all stay there. The kernel keeps the file's content. Any thread.
  void unmap_pages() const noexcept;

  int get(std::string_view path, ledger_value& ret) override;
  int write(std::span<const ledger_write> writes) override;
  std::uint64_t version() override;
  bool takes_new_items() override;
  int page(std::string_view prefix, std::string_view after, std::size_t limit,
           std::vector<ledger_stored>& ret) override;
  int page_in_order(std::uint64_t after, std::size_t limit,
                    std::vector<ledger_stored>& ret) override;

  // Commits what was gathered. 0 or a status code.
  int flush() noexcept;

 private:
  class reading;

  [[nodiscard]] bool batched() const noexcept {
    return options_.durability == lmdb_durability::batched;
  }
  static void on_damage(MDB_env* env, const char* text) noexcept;
  // The transaction of the batch under way; null when there is none. A synced store has no batches,
  // and its writer is another thread's.
  [[nodiscard]] MDB_txn* batch() const noexcept { return batched() ? writer_ : nullptr; }
  int prepare_lock_file();
  int preallocate() const noexcept;
  int open_tables();
  int check_stamp(MDB_txn* txn);
  int begin_write() noexcept;
  int write_batched(const ledger_write& write) noexcept;
  int write_ordered(const ledger_write& write) noexcept;
  int move(const ledger_write& write, const lmdb_item_head& head,
           std::span<const std::byte> value) noexcept;
  int put(const ledger_write& write, std::uint64_t sequence, std::uint64_t first) noexcept;
  int next_sequence(std::uint64_t& ret) noexcept;
  int first_of_owner(const ledger_write& write, std::uint64_t& ret) noexcept;
  [[nodiscard]] bool has_room(MDB_txn* txn) const noexcept;
  int fail(int code) noexcept;

  lmdb_options options_;
  std::string lock_fault_;  // what is wrong with the file of LMDB's locks
  MDB_env* env_ = nullptr;
  MDB_dbi items_ = 0;                   // path -> sequence, kind, first, value
  MDB_dbi order_ = 0;                   // sequence -> path
  MDB_dbi about_ = 0;                   // "stamp" -> the stamp
  MDB_txn* reader_ = nullptr;           // kept reset between reads
  MDB_txn* writer_ = nullptr;           // the write under way; a batch lasts until flush
  std::size_t gathered_ = 0;            // writes in the batch
  bool room_ = true;                    // as the batch began
  std::uint64_t last_sequence_ = 0;     // given in the present transaction
  std::string_view present_owner_;      // of the last item written by the present call of write
  std::uint64_t first_of_present_ = 0;  // its owner's
  bool has_its_space_ = false;
};

}  // namespace ot
