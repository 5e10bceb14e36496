// Opening a store. Its file is as large as its map from the start, where the disk has room for it
// and some to spare, so that a disk filled up by others does not stop the configuration from
// changing, and the store does not fill up a disk for others. The file of LMDB's locks, which is
// written through a map, has its space before it is mapped: the system ends a process that writes
// to a map without.
//
// No store is written through its map, though LMDB could and it is 5 us a transaction: LMDB then
// changes the head of the file by instructions of its own, which a compiler may put in any order,
// and a kill between two of them leaves a head that is half of one write and half of another. By a
// system call it is written at once.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "platform/ledger/server/lmdb_store.h"
#include "platform/linux/process/directories.h"
#include "platform/linux/unique_fd.h"

namespace ot {
namespace {

constexpr mdb_mode_t file_mode = 0600;
constexpr off_t lock_file_bytes = 16'384;          // LMDB takes what it finds for its reader table
constexpr std::uint64_t left_to_others = 1 << 20;  // bytes of a disk

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

// LMDB prints the text and ends the process. The next one is not to meet the same file.
void lmdb_store::on_damage(MDB_env* env, const char* /*text*/) noexcept {
  const auto& self = *static_cast<const lmdb_store*>(mdb_env_get_userctx(env));
  if (!self.options_.aside.empty()) {
    std::rename(self.options_.path.c_str(), self.options_.aside.c_str());
  }
}

int lmdb_store::open(const lmdb_options& options) {
  options_ = options;
  if (const int code = mdb_env_create(&env_); code != MDB_SUCCESS) {
    return code;
  }
  mdb_env_set_userctx(env_, this);
  mdb_env_set_assert(env_, on_damage);
  mdb_env_set_mapsize(env_, options_.map_bytes);
  mdb_env_set_maxdbs(env_, 3);
  if (const int code = prepare_lock_file(); code != 0) {
    return code;
  }
  const unsigned flags = MDB_NOSUBDIR | MDB_NOTLS | (batched() ? MDB_NOSYNC | MDB_NOMETASYNC : 0U);
  if (const int code = mdb_env_open(env_, options_.path.c_str(), flags, file_mode);
      code != MDB_SUCCESS) {
    return code;
  }
  int dead_readers = 0;
  mdb_reader_check(env_, &dead_readers);
  // The configuration is served without its space too, and learns of a full disk by its writes.
  const int unallocated = preallocate();
  has_its_space_ = unallocated == 0;
  if (!has_its_space_ && batched()) {
    return unallocated;
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

std::string lmdb_store::open_error(int code) const {
  if (!lock_fault_.empty()) {
    return lock_fault_;
  }
  return code > 0 ? place_error(options_.path, code) : options_.path + ": " + lmdb_text(code);
}

// Nothing in it outlasts the process.
int lmdb_store::prepare_lock_file() {
  const unique_fd file =
      open_own_file(options_.path + "-lock", O_RDWR | O_CREAT, file_mode, lock_fault_);
  if (!file.valid()) {
    const int error = errno;
    if (error == EPERM || error == EISDIR) {
      lock_fault_ += "; the store is good: move this file away, and the service makes it anew";
    }
    return error;
  }
  struct stat state {};
  if (fstat(file.get(), &state) != 0) {
    return errno;
  }
  return posix_fallocate(file.get(), 0, std::max(lock_file_bytes, state.st_size));
}

// What fails on its way leaves the file as long as it was.
int lmdb_store::preallocate() const noexcept {
  mdb_filehandle_t file = -1;
  struct stat state {};
  struct statvfs disk {};
  if (const int code = mdb_env_get_fd(env_, &file); code != MDB_SUCCESS) {
    return code;
  }
  if (fstat(file, &state) != 0 || fstatvfs(file, &disk) != 0) {
    return errno;
  }
  const std::uint64_t has = static_cast<std::uint64_t>(state.st_blocks) * 512;
  const std::uint64_t needs = options_.map_bytes > has ? options_.map_bytes - has : 0;
  if (needs > 0 && disk.f_bavail * disk.f_frsize < needs + left_to_others) {
    return ENOSPC;
  }
  const int code = posix_fallocate(file, 0, static_cast<off_t>(options_.map_bytes));
  if (code != 0 && ftruncate(file, state.st_size) != 0) {
    return errno;
  }
  return code;
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

}  // namespace ot
