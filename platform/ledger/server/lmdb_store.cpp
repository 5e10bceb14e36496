// Reading a store. A read sees the batch under way, if there is one; values are copied out at once,
// so nothing of the map is held between two calls. What is written to a synced store meanwhile, by
// another thread, is not seen before it is whole.
#include "platform/ledger/server/lmdb_store.h"

#include <sys/mman.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>

#include "platform/ledger_status.h"
#include "platform/linux/file_stream.h"

namespace ot {
namespace {

// 0, or a status code.
int copy_item(std::string_view path, const MDB_val& stored, ledger_stored& ret) {
  lmdb_item_head head{};
  std::span<const std::byte> value;
  if (!lmdb_split(stored, head, value)) {
    return ledger_storage_failure;
  }
  ret.path = path;
  ret.sequence = head.sequence;
  ret.first = head.first;
  return ledger_value_assign(ret.value, head.kind, value);
}

int end_of_walk(int code) noexcept {
  return code == MDB_SUCCESS || code == MDB_NOTFOUND ? status_ok : ledger_storage_failure;
}

// Of the mapping of a file that `inside` lies in.
void unmap_pages_around(void* inside) noexcept {
  const file_stream maps{std::fopen("/proc/self/maps", "re")};
  const auto address = reinterpret_cast<std::uintptr_t>(inside);
  char line[512];
  while (maps != nullptr && std::fgets(line, sizeof line, maps.get()) != nullptr) {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    if (std::sscanf(line, "%" SCNxPTR "-%" SCNxPTR, &begin, &end) == 2 && begin <= address &&
        address < end) {
      madvise(static_cast<char*>(inside) - (address - begin), end - begin, MADV_DONTNEED);
      return;
    }
  }
}

}  // namespace

bool lmdb_store::has_room(MDB_txn* txn) const noexcept {
  std::size_t pages = 0;
  std::size_t page_bytes = 1;
  for (const MDB_dbi table : {items_, order_}) {
    MDB_stat stat{};
    if (mdb_stat(txn, table, &stat) != MDB_SUCCESS) {
      return false;
    }
    pages += stat.ms_branch_pages + stat.ms_leaf_pages + stat.ms_overflow_pages;
    page_bytes = stat.ms_psize;
  }
  return pages * page_bytes < options_.map_bytes / 2;
}

// One read: the batch's transaction, or the store's own reading one for as long as this lives.
class lmdb_store::reading {
 public:
  explicit reading(lmdb_store& store) noexcept : reading(store.batch(), store.reader_) {}
  ~reading() {
    if (cursor_ != nullptr) {
      mdb_cursor_close(cursor_);
    }
    if (renewed_) {
      mdb_txn_reset(txn_);
    }
  }
  reading(const reading&) = delete;
  reading& operator=(const reading&) = delete;

  [[nodiscard]] MDB_txn* txn() const noexcept { return usable_ ? txn_ : nullptr; }
  [[nodiscard]] MDB_cursor* cursor(MDB_dbi table) noexcept {
    return usable_ && mdb_cursor_open(txn_, table, &cursor_) == MDB_SUCCESS ? cursor_ : nullptr;
  }

 private:
  reading(MDB_txn* batch, MDB_txn* reader) noexcept
      : txn_(batch != nullptr ? batch : reader),
        renewed_(batch == nullptr && mdb_txn_renew(reader) == MDB_SUCCESS),
        usable_(batch != nullptr || renewed_) {}

  MDB_txn* txn_;
  bool renewed_;
  bool usable_;
  MDB_cursor* cursor_ = nullptr;
};

int lmdb_store::get(std::string_view path, ledger_value& ret) {
  const reading read{*this};
  if (read.txn() == nullptr) {
    return ledger_storage_failure;
  }
  MDB_val key = lmdb_key(path);
  MDB_val found{};
  const int code = mdb_get(read.txn(), items_, &key, &found);
  if (code != MDB_SUCCESS) {
    return code == MDB_NOTFOUND ? ledger_no_data : ledger_storage_failure;
  }
  lmdb_item_head head{};
  std::span<const std::byte> value;
  return lmdb_split(found, head, value) ? ledger_value_assign(ret, head.kind, value)
                                        : ledger_storage_failure;
}

std::uint64_t lmdb_store::version() {
  const reading read{*this};
  return read.txn() == nullptr ? 0 : mdb_txn_id(read.txn());
}

bool lmdb_store::takes_new_items() {
  const reading read{*this};
  return read.txn() != nullptr && has_room(read.txn());
}

int lmdb_store::page(std::string_view prefix, std::string_view after, std::size_t limit,
                     std::vector<ledger_stored>& ret) {
  reading read{*this};
  MDB_cursor* cursor = read.cursor(items_);
  if (cursor == nullptr) {
    return ledger_storage_failure;
  }
  const std::string_view from = after < prefix ? prefix : after;
  MDB_val key = lmdb_key(from);
  MDB_val stored{};
  int code = mdb_cursor_get(cursor, &key, &stored, MDB_SET_RANGE);
  if (code == MDB_SUCCESS && lmdb_text_of(key) == after) {
    code = mdb_cursor_get(cursor, &key, &stored, MDB_NEXT);
  }
  for (; code == MDB_SUCCESS && limit > 0 && lmdb_text_of(key).starts_with(prefix); --limit) {
    if (const int status = copy_item(lmdb_text_of(key), stored, ret.emplace_back());
        status != status_ok) {
      return status;
    }
    code = mdb_cursor_get(cursor, &key, &stored, MDB_NEXT);
  }
  return end_of_walk(code);
}

// With a transaction of its own: the store's is the main thread's.
int lmdb_store::snapshot(std::vector<ledger_stored>& ret) const {
  MDB_txn* txn = nullptr;
  MDB_cursor* cursor = nullptr;
  if (mdb_txn_begin(env_, nullptr, MDB_RDONLY, &txn) != MDB_SUCCESS) {
    return ledger_storage_failure;
  }
  const std::unique_ptr<MDB_txn, decltype(&mdb_txn_abort)> ending{txn, mdb_txn_abort};
  if (mdb_cursor_open(txn, order_, &cursor) != MDB_SUCCESS) {
    return ledger_storage_failure;
  }
  const std::unique_ptr<MDB_cursor, decltype(&mdb_cursor_close)> closing{cursor, mdb_cursor_close};
  MDB_val place{};
  MDB_val path{};
  int code = mdb_cursor_get(cursor, &place, &path, MDB_FIRST);
  for (; code == MDB_SUCCESS; code = mdb_cursor_get(cursor, &place, &path, MDB_NEXT)) {
    MDB_val stored{};
    if (mdb_get(txn, items_, &path, &stored) != MDB_SUCCESS) {
      return ledger_storage_failure;
    }
    if (const int status = copy_item(lmdb_text_of(path), stored, ret.emplace_back());
        status != status_ok) {
      return status;
    }
  }
  return end_of_walk(code);
}

// LMDB does not tell where its map lies; the first item lies in it.
void lmdb_store::unmap_pages() const noexcept {
  MDB_txn* txn = nullptr;
  if (mdb_txn_begin(env_, nullptr, MDB_RDONLY, &txn) != MDB_SUCCESS) {
    return;
  }
  const std::unique_ptr<MDB_txn, decltype(&mdb_txn_abort)> ending{txn, mdb_txn_abort};
  MDB_cursor* cursor = nullptr;
  if (mdb_cursor_open(txn, items_, &cursor) != MDB_SUCCESS) {
    return;
  }
  const std::unique_ptr<MDB_cursor, decltype(&mdb_cursor_close)> closing{cursor, mdb_cursor_close};
  MDB_val path{};
  MDB_val stored{};
  if (mdb_cursor_get(cursor, &path, &stored, MDB_FIRST) == MDB_SUCCESS) {
    unmap_pages_around(stored.mv_data);
  }
}

std::uint64_t lmdb_store::last_write() const noexcept {
  MDB_envinfo info{};
  return mdb_env_info(env_, &info) == MDB_SUCCESS ? info.me_last_txnid : 0;
}

int lmdb_store::page_in_order(std::uint64_t after, std::size_t limit,
                              std::vector<ledger_stored>& ret) {
  reading read{*this};
  MDB_cursor* cursor = read.cursor(order_);
  if (cursor == nullptr) {
    return ledger_storage_failure;
  }
  std::uint64_t first = after + 1;
  MDB_val place{sizeof first, &first};
  MDB_val path{};
  int code = mdb_cursor_get(cursor, &place, &path, MDB_SET_RANGE);
  for (; code == MDB_SUCCESS && limit > 0; --limit) {
    ledger_stored& item = ret.emplace_back();
    item.path = lmdb_text_of(path);
    std::memcpy(&item.sequence, place.mv_data, sizeof item.sequence);
    MDB_val stored{};
    lmdb_item_head head{};
    std::span<const std::byte> value;
    item.missing = mdb_get(read.txn(), items_, &path, &stored) != MDB_SUCCESS ||
                   !lmdb_split(stored, head, value) || head.sequence != item.sequence;
    item.first = head.first;
    code = mdb_cursor_get(cursor, &place, &path, MDB_NEXT);
  }
  return end_of_walk(code);
}

}  // namespace ot
