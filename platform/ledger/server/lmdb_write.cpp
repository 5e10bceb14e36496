// Writing a store. From half full on new items are refused: LMDB copies the pages that it changes,
// and deletes have to find room for that. A batch of operational items is one transaction that the
// event loop ends before it waits; it is ended early before it could touch more pages than the
// second half has.
#include "platform/ledger/server/lmdb_store.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/ledger/item.h"
#include "platform/ledger_status.h"

namespace ot {
namespace {

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

int lmdb_store::begin_write() noexcept {
  if (writer_ != nullptr) {
    return MDB_SUCCESS;
  }
  const int code = mdb_txn_begin(env_, nullptr, 0, &writer_);
  if (code == MDB_SUCCESS) {
    room_ = has_room(writer_);
    last_sequence_ = 0;
  }
  return code;
}

// The first one of a transaction is looked up.
int lmdb_store::next_sequence(std::uint64_t& ret) noexcept {
  if (last_sequence_ != 0) {
    ret = ++last_sequence_;
    return MDB_SUCCESS;
  }
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
  last_sequence_ = ret;
  mdb_cursor_close(cursor);
  return code == MDB_NOTFOUND ? MDB_SUCCESS : code;
}

// The items of an owner lie side by side, and mostly come together.
int lmdb_store::first_of_owner(const ledger_write& write, std::uint64_t& ret) noexcept {
  if (write.owner_prefix() == present_owner_) {
    ret = first_of_present_;
    return MDB_SUCCESS;
  }
  MDB_cursor* cursor = nullptr;
  if (const int code = mdb_cursor_open(writer_, items_, &cursor); code != MDB_SUCCESS) {
    return code;
  }
  const std::string_view owner = write.owner_prefix();
  MDB_val key = lmdb_key(owner);
  MDB_val stored{};
  lmdb_item_head head{};
  std::span<const std::byte> value;
  const int code = mdb_cursor_get(cursor, &key, &stored, MDB_SET_RANGE);
  if (code == MDB_SUCCESS && lmdb_text_of(key).starts_with(owner) &&
      lmdb_split(stored, head, value)) {
    ret = head.first;
  }
  mdb_cursor_close(cursor);
  return code == MDB_NOTFOUND ? MDB_SUCCESS : code;
}

int lmdb_store::put(const ledger_write& write, std::uint64_t sequence,
                    std::uint64_t first) noexcept {
  const lmdb_item_head head{sequence, write.kind, 1, first};
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
  return put(write, 0, 0);
}

// The item keeps its place in the order.
int lmdb_store::move(const ledger_write& write, const lmdb_item_head& head,
                     std::span<const std::byte> value) noexcept {
  std::array<std::byte, ledger_value_max> copy{};  // what is read goes with the first write
  if (value.size() > copy.size()) {
    return MDB_CORRUPTED;
  }
  std::copy(value.begin(), value.end(), copy.begin());
  const ledger_write moved{
      .path = write.move_to, .kind = head.kind, .value = std::span{copy}.first(value.size())};
  std::uint64_t sequence = head.sequence;
  MDB_val place{sizeof sequence, &sequence};
  MDB_val to = lmdb_key(write.move_to);
  int code = mdb_put(writer_, order_, &place, &to, 0);
  if (code == MDB_SUCCESS) {
    code = put(moved, head.sequence, head.first);
  }
  MDB_val from = lmdb_key(write.path);
  return code != MDB_SUCCESS ? code : mdb_del(writer_, items_, &from, nullptr);
}

// A write moves its item to the end of the order.
int lmdb_store::write_ordered(const ledger_write& write) noexcept {
  MDB_val key = lmdb_key(write.path);
  MDB_val found{};
  int code = mdb_get(writer_, items_, &key, &found);
  const bool present = code == MDB_SUCCESS;
  if (!present && (code != MDB_NOTFOUND || write.remove || !room_)) {
    return code != MDB_NOTFOUND || write.remove ? code : no_room;
  }
  lmdb_item_head head{};
  std::span<const std::byte> value;
  const bool readable = present && lmdb_split(found, head, value);
  if (readable && !write.move_to.empty()) {
    return move(write, head, value);
  }
  if (readable) {
    MDB_val place{sizeof head.sequence, &head.sequence};
    code = mdb_del(writer_, order_, &place, nullptr);
    if (code != MDB_SUCCESS && code != MDB_NOTFOUND) {
      return code;
    }
  }
  if (write.remove) {
    present_owner_ = {};  // it may be the last one of its owner
    return mdb_del(writer_, items_, &key, nullptr);
  }
  std::uint64_t sequence = 0;
  code = next_sequence(sequence);
  std::uint64_t first = present && head.first != 0 ? head.first : sequence;
  if (code == MDB_SUCCESS && !present && write.owner != 0) {
    code = first_of_owner(write, first);
  }
  if (code == MDB_SUCCESS) {
    MDB_val place{sizeof sequence, &sequence};
    code = mdb_put(writer_, order_, &place, &key, MDB_APPEND);
    present_owner_ = write.owner == 0 ? std::string_view{} : write.owner_prefix();
    first_of_present_ = first;
  }
  return code != MDB_SUCCESS ? code : put(write, sequence, first);
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
  present_owner_ = {};
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
