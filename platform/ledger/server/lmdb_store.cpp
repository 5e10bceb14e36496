// Opening a store. Its file is as large as its map from the start, where the disk has room for it,
// so that a disk filled up by others does not stop the configuration from changing.
#include "platform/ledger/server/lmdb_store.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/ledger/server/lmdb_item.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr mdb_mode_t file_mode = 0600;

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
  // other one is told of a full disk by its writes.
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

}  // namespace ot
