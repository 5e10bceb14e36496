// Opening and writing a store. The file is as large as its map from the start, so a full disk is
// met at the start and not in the middle of a write. From half full on new items are refused: LMDB
// copies the pages that it changes, and deletes have to find room for that. A batch of operational
// items is one transaction that the event loop ends before it waits; it is ended early before it
// could touch more pages than the second half has.
#include "platform/linux/ledger_server/lmdb_store.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "platform/linux/ledger_server/lmdb_item.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr mdb_mode_t file_mode = 0600;
constexpr std::size_t batch_max = 64;             // writes
constexpr std::size_t map_bytes_a_write = 65536;  // a batch has at most one write for so much map
constexpr int no_room = ENOSPC;                   // our refusal; LMDB's own is MDB_MAP_FULL

int status_of(int code) noexcept {
  switch (code) {
    case MDB_SUCCESS:
      return status_ok;
    case MDB_NOTFOUND:
      return ledger_no_data;
    case MDB_MAP_FULL:
    case ENOSPC:
    case EDQUOT:
      return ledger_full;
    case ENOMEM:
      return no_memory;
    default:
      return ledger_storage_failure;
  }
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

int lmdb_store::begin_write() noexcept {
  if (writer_ != nullptr) {
    return MDB_SUCCESS;
  }
  const int code = mdb_txn_begin(env_, nullptr, 0, &writer_);
  if (code == MDB_SUCCESS) {
    room_ = has_room(writer_);
  }
  return code;
}

int lmdb_store::next_sequence(std::uint64_t& ret) noexcept {
  MDB_cursor* cursor = nullptr;
  if (const int code = mdb_cursor_open(writer_, order_, &cursor); code != MDB_SUCCESS) {
    return code;
  }
  MDB_val key{};
  MDB_val path{};
  const int code = mdb_cursor_get(cursor, &key, &path, MDB_LAST);
  ret = 1;
  if (code == MDB_SUCCESS) {
    std::memcpy(&ret, key.mv_data, sizeof ret);
    ++ret;
  }
  mdb_cursor_close(cursor);
  return code == MDB_NOTFOUND ? MDB_SUCCESS : code;
}

int lmdb_store::put(const ledger_write& write, std::uint64_t sequence) noexcept {
  const lmdb_item_head head{sequence, write.kind, 0};
  MDB_val key = lmdb_key(write.path);
  MDB_val room{sizeof head + write.value.size(), nullptr};
  const int code = mdb_put(writer_, items_, &key, &room, MDB_RESERVE);
  if (code == MDB_SUCCESS) {
    auto* bytes = static_cast<std::byte*>(room.mv_data);
    std::memcpy(bytes, &head, sizeof head);
    std::copy(write.value.begin(), write.value.end(), bytes + sizeof head);
  }
  return code;
}

// Batched items have no order of creation, so a write need not look at what is there, unless new
// items are refused.
int lmdb_store::write_batched(const ledger_write& write) noexcept {
  MDB_val key = lmdb_key(write.path);
  if (write.remove) {
    return mdb_del(writer_, items_, &key, nullptr);
  }
  MDB_val found{};
  const int code = room_ ? MDB_SUCCESS : mdb_get(writer_, items_, &key, &found);
  if (code != MDB_SUCCESS) {
    return code == MDB_NOTFOUND ? no_room : code;
  }
  return put(write, 0);
}

int lmdb_store::write_ordered(const ledger_write& write) noexcept {
  MDB_val key = lmdb_key(write.path);
  MDB_val found{};
  const int code = mdb_get(writer_, items_, &key, &found);
  if (code == MDB_NOTFOUND && !write.remove) {
    return create(write);
  }
  lmdb_item_head head{};
  std::span<const std::byte> value;
  if (code != MDB_SUCCESS || !lmdb_split(found, head, value)) {
    return code != MDB_SUCCESS ? code : MDB_CORRUPTED;
  }
  if (!write.remove) {
    return put(write, head.sequence);
  }
  MDB_val place{sizeof head.sequence, &head.sequence};
  const int deleted = mdb_del(writer_, items_, &key, nullptr);
  return deleted != MDB_SUCCESS ? deleted : mdb_del(writer_, order_, &place, nullptr);
}

int lmdb_store::create(const ledger_write& write) noexcept {
  std::uint64_t sequence = 0;
  int code = room_ ? next_sequence(sequence) : no_room;
  if (code == MDB_SUCCESS) {
    MDB_val place{sizeof sequence, &sequence};
    MDB_val key = lmdb_key(write.path);
    code = mdb_put(writer_, order_, &place, &key, MDB_APPEND);
  }
  return code != MDB_SUCCESS ? code : put(write, sequence);
}

int lmdb_store::fail(int code) noexcept {
  mdb_txn_abort(writer_);
  writer_ = nullptr;
  gathered_ = 0;
  return status_of(code);
}

int lmdb_store::write(std::span<const ledger_write> writes) {
  if (const int code = begin_write(); code != MDB_SUCCESS) {
    return status_of(code);
  }
  for (const ledger_write& write : writes) {
    const int code = batched() ? write_batched(write) : write_ordered(write);
    if (code != MDB_SUCCESS) {
      // What left no trace in the transaction spares the rest of the batch.
      const bool harmless = batched() && (code == MDB_NOTFOUND || code == no_room);
      return harmless ? status_of(code) : fail(code);
    }
  }
  gathered_ += writes.size();
  const std::size_t most = std::min(batch_max, options_.map_bytes / map_bytes_a_write);
  return !batched() || gathered_ >= most ? flush() : status_ok;
}

int lmdb_store::flush() noexcept {
  if (writer_ == nullptr) {
    return status_ok;
  }
  MDB_txn* ending = writer_;
  writer_ = nullptr;
  gathered_ = 0;
  return status_of(mdb_txn_commit(ending));
}

}  // namespace ot
