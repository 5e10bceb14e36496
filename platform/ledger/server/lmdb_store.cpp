// Opening and reading a store. Its file is as large as its map from the start, where the disk has
// room for it, so that a disk filled up by others does not stop the configuration from changing. A
// read sees the batch under way, if there is one; values are copied out at once, so nothing of the
// map is held between two calls.
#include "platform/ledger/server/lmdb_store.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/ledger_status.h"

namespace ot {
namespace {

constexpr mdb_mode_t file_mode = 0600;

// 0, or a status code.
int copy_item(std::string_view path, const MDB_val& stored, ledger_stored& ret) {
  lmdb_item_head head{};
  std::span<const std::byte> value;
  if (!lmdb_split(stored, head, value)) {
    return ledger_storage_failure;
  }
  ret.path = path;
  ret.sequence = head.sequence;
  return ledger_value_assign(ret.value, head.kind, value);
}

int end_of_walk(int code) noexcept {
  return code == MDB_SUCCESS || code == MDB_NOTFOUND ? status_ok : ledger_storage_failure;
}

}  // namespace

const char* lmdb_store::lmdb_text(int code) noexcept {
  return mdb_strerror(code);
}

lmdb_store::~lmdb_store() {
  flush();
  if (reader_ != nullptr) {
    mdb_txn_abort(reader_);
  }
  if (env_ != nullptr) {
    mdb_env_close(env_);
  }
}

int lmdb_store::open(const lmdb_options& options) {
  options_ = options;
  if (const int code = mdb_env_create(&env_); code != MDB_SUCCESS) {
    return code;
  }
  mdb_env_set_mapsize(env_, options_.map_bytes);
  mdb_env_set_maxdbs(env_, 3);
  const unsigned flags =
      MDB_NOSUBDIR | MDB_NOTLS | (batched() ? MDB_WRITEMAP | MDB_NOSYNC | MDB_NOMETASYNC : 0U);
  if (const int code = mdb_env_open(env_, options_.path.c_str(), flags, file_mode);
      code != MDB_SUCCESS) {
    return code;
  }
  int dead_readers = 0;
  mdb_reader_check(env_, &dead_readers);
  // A store written through its map would end the process when the disk has no room behind it; the
  // other one learns of a full disk by its writes.
  if (const int code = preallocate(); code != 0 && batched()) {
    return code;
  }
  if (const int code = open_tables(); code != MDB_SUCCESS) {
    return code;
  }
  if (const int code = mdb_txn_begin(env_, nullptr, MDB_RDONLY, &reader_); code != MDB_SUCCESS) {
    return code;
  }
  mdb_txn_reset(reader_);
  return MDB_SUCCESS;
}

int lmdb_store::preallocate() const noexcept {
  mdb_filehandle_t file = -1;
  if (const int code = mdb_env_get_fd(env_, &file); code != MDB_SUCCESS) {
    return code;
  }
  return posix_fallocate(file, 0, static_cast<off_t>(options_.map_bytes));
}

int lmdb_store::open_tables() {
  MDB_txn* txn = nullptr;
  int code = mdb_txn_begin(env_, nullptr, 0, &txn);
  if (code != MDB_SUCCESS) {
    return code;
  }
  code = mdb_dbi_open(txn, "items", MDB_CREATE, &items_);
  if (code == MDB_SUCCESS) {
    code = mdb_dbi_open(txn, "order", MDB_CREATE | MDB_INTEGERKEY, &order_);
  }
  if (code == MDB_SUCCESS) {
    code = mdb_dbi_open(txn, "about", MDB_CREATE, &about_);
  }
  if (code == MDB_SUCCESS && !options_.stamp.empty()) {
    code = check_stamp(txn);
  }
  if (code != MDB_SUCCESS) {
    mdb_txn_abort(txn);
    return code;
  }
  return mdb_txn_commit(txn);
}

int lmdb_store::check_stamp(MDB_txn* txn) {
  MDB_val key = lmdb_key("stamp");
  MDB_val found{};
  const int code = mdb_get(txn, about_, &key, &found);
  if (code == MDB_SUCCESS && lmdb_text_of(found) == options_.stamp) {
    return MDB_SUCCESS;
  }
  MDB_val stamp = lmdb_key(options_.stamp);
  for (const MDB_dbi table : {items_, order_}) {
    if (const int dropped = mdb_drop(txn, table, 0); dropped != MDB_SUCCESS) {
      return dropped;
    }
  }
  return mdb_put(txn, about_, &key, &stamp, 0);
}

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
  explicit reading(lmdb_store& store) noexcept
      : txn_(store.writer_ != nullptr ? store.writer_ : store.reader_),
        renewed_(store.writer_ == nullptr && mdb_txn_renew(txn_) == MDB_SUCCESS),
        usable_(store.writer_ != nullptr || renewed_) {}
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
    MDB_val stored{};
    if (mdb_get(read.txn(), items_, &path, &stored) != MDB_SUCCESS) {
      return ledger_storage_failure;
    }
    if (const int status = copy_item(lmdb_text_of(path), stored, ret.emplace_back());
        status != status_ok) {
      return status;
    }
    code = mdb_cursor_get(cursor, &place, &path, MDB_NEXT);
  }
  return end_of_walk(code);
}

}  // namespace ot
