// The store in a file: what survives what, and what happens when it is full.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>

#include "platform/ledger/server/lmdb_store.h"
#include "platform/ledger/server/store_check.h"
#include "platform/ledger_status.h"
#include "tests/contract/linux/ledger_place.h"
#include "tests/support/ledger_proposals.h"

namespace ot::test {
namespace {

using ::testing::ElementsAre;
namespace fs = std::filesystem;

class lmdb_ledger_store : public ::testing::Test {
 protected:
  void open(lmdb_durability durability, const std::string& stamp = {}, std::size_t kilobytes = 1024,
            const std::string& aside = {}) {
    store_.emplace();
    ASSERT_EQ(store_->open({.path = place_.path() + "/store.mdb",
                            .map_bytes = kilobytes * 1024,
                            .durability = durability,
                            .stamp = stamp,
                            .aside = aside}),
              0);
  }
  int put(const std::string& path, std::uint32_t number) {
    const auto bytes = bytes_of_numbers({number});
    const ledger_write write{.path = path, .value = bytes};
    return store_->write({&write, 1});
  }
  int remove(const std::string& path) {
    const ledger_write write{.path = path, .remove = true};
    return store_->write({&write, 1});
  }
  std::uint32_t number_at(const std::string& path) {
    ledger_value value;
    return store_->get(path, value) == 0 ? value.as_u32() : 0;
  }
  std::vector<std::string> in_order() {
    std::vector<ledger_stored> items;
    EXPECT_EQ(store_->page_in_order(0, 1000, items), 0);
    std::vector<std::string> paths;
    for (const ledger_stored& item : items) {
      paths.push_back(item.path);
    }
    return paths;
  }
  // Runs `work` in a process of its own, which is killed when it has ended.
  static void run_and_kill(const std::function<void()>& work) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      work();
      kill(getpid(), SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
  }

  [[nodiscard]] std::string file() const { return place_.path() + "/store.mdb"; }
  // What is wrong with the store's file; "" for nothing.
  std::string fault() {
    std::string found;
    check_store(file(), std::size_t{1024} * 1024, false, found);
    return found;
  }

  // LMDB takes such a store for good, and ends the process that writes to it.
  void make_half_a_head() {
    const std::streamoff page = sysconf(_SC_PAGESIZE);
    constexpr std::streamoff tail_of_tables = 16 + 0x68;  // entries and root of the last table
    open(lmdb_durability::batched);
    for (std::uint32_t write = 0; write < 400; ++write) {
      ASSERT_EQ(put("/oper/track/" + std::to_string(write % 300), write), 0);
      ASSERT_EQ(store_->flush(), 0);
    }
    const std::streamoff head = store_->last_write() % 2 == 0 ? page : 0;  // of the next write
    std::array<char, 16> earlier{};
    std::fstream bytes{file(), std::ios::in | std::ios::out | std::ios::binary};
    bytes.seekg(head + tail_of_tables).read(earlier.data(), earlier.size());
    ASSERT_EQ(put("/oper/track/0", 1), 0);
    ASSERT_EQ(store_->flush(), 0);
    store_.reset();
    ASSERT_EQ(fault(), "");
    bytes.seekp(head + tail_of_tables).write(earlier.data(), earlier.size());
    bytes.close();
  }

  ledger_place place_;
  std::optional<lmdb_store> store_;
};

TEST_F(lmdb_ledger_store, a_write_is_all_or_nothing) {
  open(lmdb_durability::synced);
  const auto one = bytes_of_numbers({1});
  const ledger_write writes[] = {{.path = "/cfg/a", .value = one},
                                 {.path = "/cfg/b", .remove = true}};
  EXPECT_EQ(store_->write(writes), ledger_no_data);
  EXPECT_EQ(number_at("/cfg/a"), 0U);
  EXPECT_TRUE(in_order().empty());
}

TEST_F(lmdb_ledger_store, the_version_is_another_one_after_each_write_and_nothing_else) {
  open(lmdb_durability::synced);
  const std::uint64_t empty = store_->version();
  EXPECT_EQ(put("/cfg/a", 1), 0);
  const std::uint64_t first = store_->version();
  EXPECT_NE(first, empty);
  EXPECT_EQ(number_at("/cfg/a"), 1U);
  EXPECT_NE(remove("/cfg/b"), 0);
  EXPECT_EQ(store_->version(), first);
  EXPECT_EQ(remove("/cfg/a"), 0);
  EXPECT_NE(store_->version(), first);
}

TEST_F(lmdb_ledger_store, order_is_that_of_the_last_change) {
  open(lmdb_durability::synced);
  for (const char* path : {"/cfg/c", "/cfg/a", "/cfg/b"}) {
    ASSERT_EQ(put(path, 1), 0);
  }
  ASSERT_EQ(put("/cfg/c", 2), 0);
  ASSERT_EQ(remove("/cfg/a"), 0);
  ASSERT_EQ(put("/cfg/a", 3), 0);
  open(lmdb_durability::synced);
  EXPECT_THAT(in_order(), ElementsAre("/cfg/b", "/cfg/c", "/cfg/a"));
}

TEST_F(lmdb_ledger_store, the_items_of_an_owner_know_when_its_first_one_came) {
  open(lmdb_durability::synced);
  const auto value = bytes_of_numbers({1});
  const auto write = [&](const char* path) {
    const ledger_write change{.path = path, .value = value, .owner = 6};  // "/cfg/x"
    return store_->write({&change, 1});
  };
  ASSERT_EQ(write("/cfg/y/b"), 0);
  ASSERT_EQ(write("/cfg/x/b"), 0);
  ASSERT_EQ(write("/cfg/x/a"), 0);
  ASSERT_EQ(remove("/cfg/x/b"), 0);
  ASSERT_EQ(write("/cfg/x/c"), 0);
  ASSERT_EQ(write("/cfg/y/b"), 0);
  open(lmdb_durability::synced);
  std::vector<ledger_stored> items;
  ASSERT_EQ(store_->page_in_order(0, 10, items), 0);
  std::vector<std::string> lines;
  for (const ledger_stored& item : items) {
    lines.push_back(item.path + " " + std::to_string(item.first));
  }
  EXPECT_THAT(lines, ElementsAre("/cfg/x/a 2", "/cfg/x/c 2", "/cfg/y/b 1"));
}

TEST_F(lmdb_ledger_store, an_item_that_moves_keeps_its_place) {
  open(lmdb_durability::synced);
  for (const char* path : {"/cfg/c", "/cfg/a", "/cfg/b"}) {
    ASSERT_EQ(put(path, 7), 0);
  }
  const ledger_write move{.path = "/cfg/a", .remove = true, .move_to = "/retired/cfg/a"};
  ASSERT_EQ(store_->write({&move, 1}), 0);
  EXPECT_THAT(in_order(), ElementsAre("/cfg/c", "/retired/cfg/a", "/cfg/b"));
  EXPECT_EQ(number_at("/cfg/a"), 0U);
  EXPECT_EQ(number_at("/retired/cfg/a"), 7U);
}

// Changes the store's file behind its back: `work` gets its tables of items and of their order.
void change_file(const std::string& path,
                 const std::function<void(MDB_txn*, MDB_dbi items, MDB_dbi order)>& work) {
  MDB_env* env = nullptr;
  MDB_txn* txn = nullptr;
  MDB_dbi items = 0;
  MDB_dbi order = 0;
  ASSERT_EQ(mdb_env_create(&env), 0);
  mdb_env_set_maxdbs(env, 3);
  ASSERT_EQ(mdb_env_open(env, path.c_str(), MDB_NOSUBDIR, 0600), 0);
  ASSERT_EQ(mdb_txn_begin(env, nullptr, 0, &txn), 0);
  ASSERT_EQ(mdb_dbi_open(txn, "items", 0, &items), 0);
  ASSERT_EQ(mdb_dbi_open(txn, "order", MDB_INTEGERKEY, &order), 0);
  work(txn, items, order);
  ASSERT_EQ(mdb_txn_commit(txn), 0);
  mdb_env_close(env);
}

TEST_F(lmdb_ledger_store, a_listed_item_that_is_not_there_is_named) {
  open(lmdb_durability::synced);
  for (const char* path : {"/cfg/a", "/cfg/b", "/cfg/c"}) {
    ASSERT_EQ(put(path, 1), 0);
  }
  store_.reset();
  change_file(place_.path() + "/store.mdb", [](MDB_txn* txn, MDB_dbi items, MDB_dbi) {
    MDB_val gone = lmdb_key("/cfg/a");
    EXPECT_EQ(mdb_del(txn, items, &gone, nullptr), 0);
    MDB_val damaged = lmdb_key("/cfg/b");
    char bytes[] = "short";
    MDB_val value{sizeof bytes, bytes};
    EXPECT_EQ(mdb_put(txn, items, &damaged, &value, 0), 0);
  });
  open(lmdb_durability::synced);
  std::vector<ledger_stored> items;
  ASSERT_EQ(store_->page_in_order(0, 10, items), 0);
  ASSERT_EQ(items.size(), 3U);
  EXPECT_TRUE(items[0].missing);
  EXPECT_TRUE(items[1].missing);
  EXPECT_FALSE(items[2].missing);
  // Both can be written again, and deleted.
  ASSERT_EQ(put("/cfg/a", 2), 0);
  ASSERT_EQ(put("/cfg/b", 3), 0);
  EXPECT_EQ(number_at("/cfg/b"), 3U);
  EXPECT_EQ(remove("/cfg/b"), 0);
}

TEST_F(lmdb_ledger_store, items_of_earlier_releases_are_read) {
  open(lmdb_durability::synced);
  ASSERT_EQ(put("/cfg/b", 1), 0);
  store_.reset();
  change_file(place_.path() + "/store.mdb", [](MDB_txn* txn, MDB_dbi items, MDB_dbi) {
    const struct {
      std::uint64_t sequence = 1;
      ledger_kind kind = ledger_kind::u32;
      std::uint32_t reserved = 0;
      std::uint32_t value = 9;
      std::uint32_t padding = 0;
    } old;
    MDB_val key = lmdb_key("/cfg/b");
    MDB_val value{20, const_cast<void*>(static_cast<const void*>(&old))};
    EXPECT_EQ(mdb_put(txn, items, &key, &value, 0), 0);
  });
  open(lmdb_durability::synced);
  EXPECT_EQ(number_at("/cfg/b"), 9U);
  std::vector<ledger_stored> items;
  ASSERT_EQ(store_->page_in_order(0, 10, items), 0);
  ASSERT_EQ(items.size(), 1U);
  EXPECT_EQ(items[0].sequence, 1U);
  EXPECT_EQ(items[0].first, 1U);
}

TEST_F(lmdb_ledger_store, a_stored_write_survives_a_kill) {
  run_and_kill([this] {
    open(lmdb_durability::synced);
    put("/cfg/a", 7);
  });
  open(lmdb_durability::synced);
  EXPECT_EQ(number_at("/cfg/a"), 7U);
}

TEST_F(lmdb_ledger_store, a_flushed_batch_survives_a_kill) {
  run_and_kill([this] {
    open(lmdb_durability::batched, "boot");
    put("/oper/a", 7);
    store_->flush();
    put("/oper/b", 8);
  });
  open(lmdb_durability::batched, "boot");
  EXPECT_EQ(number_at("/oper/a"), 7U);
  EXPECT_EQ(number_at("/oper/b"), 0U);
  ASSERT_EQ(put("/oper/b", 9), 0);
}

TEST_F(lmdb_ledger_store, a_batch_is_read_before_it_is_flushed) {
  open(lmdb_durability::batched);
  ASSERT_EQ(put("/oper/a", 7), 0);
  EXPECT_EQ(number_at("/oper/a"), 7U);
  EXPECT_EQ(remove("/oper/nothing"), ledger_no_data);
  EXPECT_EQ(number_at("/oper/a"), 7U);  // a refusal spares the batch
  ASSERT_EQ(remove("/oper/a"), 0);
  EXPECT_EQ(number_at("/oper/a"), 0U);
}

// A kill can come between any two instructions. LMDB's head of a store takes some to change, so it
// is the system that has to write it, at once.
TEST_F(lmdb_ledger_store, no_store_is_written_through_a_map) {
  for (const auto durability : {lmdb_durability::batched, lmdb_durability::synced}) {
    open(durability);
    ASSERT_EQ(put("/oper/a", 1), 0);
    std::ifstream maps{"/proc/self/maps"};
    std::vector<std::string> rights;
    for (std::string line; std::getline(maps, line);) {
      if (line.ends_with(file())) {
        rights.push_back(line.substr(line.find(' ') + 1, 4));
      }
    }
    EXPECT_THAT(rights, ElementsAre("r--s"));
    store_.reset();
    fs::remove(file());
  }
}

// Its newest head gets the number of the last write with the tables of the write before the last:
// what a kill within the head left when it was written through a map.
TEST_F(lmdb_ledger_store, a_head_with_the_tables_of_an_earlier_write_is_found) {
  make_half_a_head();
  EXPECT_EQ(fault(), "its head is damaged");
}

TEST_F(lmdb_ledger_store, damage_that_shows_in_use_is_not_met_twice) {
  make_half_a_head();
  const std::string aside = file() + ".aside";
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    close(STDERR_FILENO);
    open(lmdb_durability::batched, {}, 1024, aside);
    for (std::uint32_t write = 0; write < 400; ++write) {
      put("/oper/track/" + std::to_string(write % 300), write);
      store_->flush();
    }
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGABRT);
  EXPECT_FALSE(fs::exists(file()));
  EXPECT_TRUE(fs::exists(aside));
}

TEST_F(lmdb_ledger_store, another_stamp_drops_the_items) {
  open(lmdb_durability::batched, "first boot");
  ASSERT_EQ(put("/oper/a", 7), 0);
  open(lmdb_durability::batched, "first boot");
  EXPECT_EQ(number_at("/oper/a"), 7U);
  open(lmdb_durability::batched, "second boot");
  EXPECT_EQ(number_at("/oper/a"), 0U);
}

// Fills the store until it takes no more, and returns how many items it took.
class full_ledger_store : public lmdb_ledger_store,
                          public ::testing::WithParamInterface<lmdb_durability> {
 protected:
  std::string path(int index) const {
    return "/cfg/item/" + std::string(100, 'x') + std::to_string(index);
  }
  int fill() {
    int count = 0;
    int status = 0;
    while (status == 0 && count < 100'000) {
      status = put(path(count), 1);
      count += status == 0 ? 1 : 0;
    }
    EXPECT_EQ(status, ledger_full);
    return count;
  }
};

TEST_P(full_ledger_store, refuses_new_items_and_still_sets_and_deletes) {
  open(GetParam(), {}, 256);
  const int count = fill();
  ASSERT_GT(count, 100);
  EXPECT_EQ(store_->flush(), 0);
  EXPECT_FALSE(store_->takes_new_items());
  for (int i = 0; i < count; ++i) {
    ASSERT_EQ(put(path(i), 2), 0) << i;
  }
  EXPECT_EQ(put(path(count), 1), ledger_full);
  for (int i = 0; i < count; ++i) {
    ASSERT_EQ(remove(path(i)), 0) << i;
  }
  EXPECT_EQ(store_->flush(), 0);
  EXPECT_TRUE(store_->takes_new_items());
  EXPECT_EQ(fill(), count);
}

INSTANTIATE_TEST_SUITE_P(durabilities, full_ledger_store,
                         ::testing::Values(lmdb_durability::synced, lmdb_durability::batched));

}  // namespace
}  // namespace ot::test
