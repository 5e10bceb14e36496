#include "platform/ledger/server/store_reader.h"

#include <fcntl.h>
#include <lmdb.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "platform/ledger/item.h"
#include "platform/ledger/server/lmdb_store.h"
#include "platform/linux/process/directories.h"

namespace ot {
namespace {

constexpr MDB_dbi free_pages = 0;  // LMDB's own tables
constexpr MDB_dbi names_of_tables = 1;
constexpr const char* head_fault = "its head is damaged";

// The part of LMDB's two heads (format 1, on a machine of 64 bits) that tells them apart. Each
// write replaces the older one, so their numbers follow each other. LMDB itself goes back to the
// older one when the other is damaged, and so to what was there before the last write.
struct file_head {
  std::uint64_t page_number;
  std::uint64_t page_flags;
  std::uint32_t magic;
  std::uint32_t version;
  std::uint64_t address;
  std::uint64_t map_bytes;
  std::uint32_t page_bytes;
  std::uint8_t tables[84];
  std::uint64_t root_of_names;  // a page
  std::uint64_t last_page;
  std::uint64_t transaction;
};
static_assert(offsetof(file_head, root_of_names) == 128 && offsetof(file_head, transaction) == 144);
constexpr std::uint32_t head_magic = 0xbeefc0de;

// The page at which the newer one's table of tables begins; 0 where heads are not looked at.
std::uint64_t check_heads(int file) {
  if constexpr (sizeof(void*) == 8) {
    file_head heads[2]{};
    if (pread(file, &heads[0], sizeof heads[0], 0) != sizeof heads[0] ||
        pread(file, &heads[1], sizeof heads[1], heads[0].page_bytes) != sizeof heads[1] ||
        heads[0].magic != head_magic || heads[1].magic != head_magic) {
      throw store_damage{"it is no store of this service, or its head is damaged"};
    }
    const std::uint64_t apart = heads[0].transaction - heads[1].transaction;
    if (apart + 1 > 2) {
      throw store_damage{head_fault};
    }
    return heads[heads[0].transaction > heads[1].transaction ? 0 : 1].root_of_names;
  }
  return 0;
}

class reading_process {
 public:
  reading_process(const std::string& path, std::size_t map_bytes) {
    std::string error;
    root_of_names_ = check_heads(open_own_file(path, O_RDONLY, 0, error).get());
    check(mdb_env_create(&env_));
    check(mdb_env_set_mapsize(env_, map_bytes));
    check(mdb_env_set_maxdbs(env_, 3));
    check(mdb_env_open(env_, path.c_str(), MDB_NOSUBDIR | MDB_RDONLY | MDB_NOLOCK | MDB_NOTLS, 0));
    check(mdb_txn_begin(env_, nullptr, MDB_RDONLY, &txn_));
  }

  void read_all(bool ordered) {
    MDB_envinfo info{};
    check(mdb_env_info(env_, &info));
    last_page_ = info.me_last_pgno;
    walk(free_pages, &reading_process::look_at_free);
    check(mdb_dbi_open(txn_, "items", 0, &items_));
    check(mdb_dbi_open(txn_, "order", 0, &order_));
    check(mdb_dbi_open(txn_, "about", 0, &about_));
    walk(about_, &reading_process::look_at_nothing);
    const std::size_t items = walk(items_, &reading_process::look_at_item);
    if (ordered && walk(order_, &reading_process::look_at_place) < items) {
      throw store_damage{"its order lacks items"};
    }
    count_pages();
  }

 private:
  static void check(int code) {
    if (code != MDB_SUCCESS) {
      throw store_damage{mdb_strerror(code)};
    }
  }

  // Visits every entry; their number.
  std::size_t walk(MDB_dbi table, void (reading_process::*look)(const MDB_val&, const MDB_val&)) {
    MDB_cursor* cursor = nullptr;
    check(mdb_cursor_open(txn_, table, &cursor));
    MDB_val key{};
    MDB_val data{};
    std::size_t count = 0;
    int code = mdb_cursor_get(cursor, &key, &data, MDB_FIRST);
    for (; code == MDB_SUCCESS; code = mdb_cursor_get(cursor, &key, &data, MDB_NEXT)) {
      (this->*look)(key, data);
      ++count;
    }
    if (code != MDB_NOTFOUND) {
      check(code);
    }
    mdb_cursor_close(cursor);
    MDB_stat stat{};
    check(mdb_stat(txn_, table, &stat));
    if (stat.ms_entries != count) {
      throw store_damage{"it has lost items"};
    }
    return count;
  }

  void look_at_item(const MDB_val& key, const MDB_val& data) {
    const std::string_view bytes = lmdb_text_of(data);
    touched_ = std::count(bytes.begin(), bytes.end(), '\0') + touched_;
    look_at_path(key);
  }

  void look_at_place(const MDB_val& key, const MDB_val& path) {
    if (key.mv_size != sizeof(std::uint64_t)) {
      throw store_damage{"its order is damaged"};
    }
    look_at_path(path);
  }

  // No store has written another one. What the items are worth is for the replay, which names each
  // that it cannot apply.
  static void look_at_path(const MDB_val& path) {
    if (!ledger_item_path_valid(lmdb_text_of(path))) {
      throw store_damage{"it holds an item that is none"};
    }
  }

  void look_at_nothing(const MDB_val& /*key*/, const MDB_val& /*data*/) {}

  // Each entry: a count and so many page numbers, the highest first.
  void look_at_free(const MDB_val& /*key*/, const MDB_val& data) {
    std::size_t numbers = 0;
    if (data.mv_size >= sizeof numbers) {
      std::memcpy(&numbers, data.mv_data, sizeof numbers);
    }
    if (data.mv_size < sizeof numbers || numbers >= data.mv_size / sizeof numbers) {
      throw store_damage{"its list of free pages is damaged"};
    }
    std::size_t before = last_page_ + 1;
    for (std::size_t i = 1; i <= numbers; ++i) {
      std::size_t page = 0;
      std::memcpy(&page, static_cast<const char*>(data.mv_data) + i * sizeof page, sizeof page);
      if (page < 2 || page >= before) {
        throw store_damage{"its list of free pages is damaged"};
      }
      // A head that has its own list of free pages and the tables of an earlier write.
      if (page == root_of_names_) {
        throw store_damage{head_fault};
      }
      before = page;
    }
    free_ += numbers;
  }

  // A page that is in use and counts as free would be given away with what is on it.
  void count_pages() {
    std::size_t used = 2;  // the heads
    for (const MDB_dbi table : {free_pages, names_of_tables, items_, order_, about_}) {
      MDB_stat stat{};
      check(mdb_stat(txn_, table, &stat));
      used += stat.ms_branch_pages + stat.ms_leaf_pages + stat.ms_overflow_pages;
    }
    if (used + free_ > last_page_ + 1) {
      throw store_damage{"its list of free pages is damaged"};
    }
  }

  MDB_env* env_ = nullptr;
  MDB_txn* txn_ = nullptr;
  MDB_dbi items_ = 0;
  MDB_dbi order_ = 0;
  MDB_dbi about_ = 0;
  std::uint64_t root_of_names_ = 0;
  std::size_t last_page_ = 0;
  std::size_t free_ = 0;                 // pages
  volatile std::ptrdiff_t touched_ = 0;  // every byte of a value is read
};

}  // namespace

void read_whole_store(const std::string& path, std::size_t map_bytes, bool ordered) {
  reading_process{path, map_bytes}.read_all(ordered);
}

}  // namespace ot
