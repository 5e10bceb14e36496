// The configuration's store after damage of any kind, and its copy.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "platform/ledger/server/configuration_copy.h"
#include "platform/ledger/server/configuration_store.h"
#include "platform/ledger_status.h"
#include "platform/linux/unique_fd.h"
#include "tests/contract/linux/ledger_place.h"
#include "tests/support/ledger_proposals.h"
#include "tests/support/seeds.h"

namespace ot::test {
namespace {

using ::testing::HasSubstr;
namespace fs = std::filesystem;

constexpr std::size_t map_bytes = std::size_t{512} << 10;
constexpr int items = 300;
constexpr int rounds = 150;

std::string path_of(int number) {
  // Path order and order of creation differ.
  return "/cfg/gl/item/" + std::to_string(number * 7919 % items) + "/a";
}

class configuration_store : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(place_.path() + "/var/lib/object_tracking");
    fs::permissions(place_.path() + "/var/lib", fs::perms{0755});
  }

  static std::vector<std::string> in_order(lmdb_store& store) {
    std::vector<ledger_stored> all;
    EXPECT_EQ(store.page_in_order(0, 10'000, all), 0);
    std::vector<std::string> lines;
    for (const ledger_stored& item : all) {
      ledger_value value;
      store.get(item.path, value);
      lines.push_back(item.path + "=" + std::string(value.as_text()));
    }
    return lines;
  }
  // The items in the order of their owners' first ones.
  static std::vector<std::string> in_first_order(lmdb_store& store) {
    std::vector<ledger_stored> all;
    EXPECT_EQ(store.page_in_order(0, 10'000, all), 0);
    std::ranges::stable_sort(all, {}, &ledger_stored::first);
    std::vector<std::string> paths;
    for (const ledger_stored& item : all) {
      paths.push_back(item.path);
    }
    return paths;
  }
  // A store with many items, made by many writes, so that it has free pages too; and its copy.
  static std::vector<std::string> make() {
    lmdb_store store;
    std::string error;
    EXPECT_EQ(open_configuration(store, map_bytes, error), 0) << error;
    for (int i = 0; i < items; ++i) {
      const auto value = bytes_of(std::string(static_cast<std::size_t>(i % 90), 'v'));
      const std::string path = path_of(i);
      const ledger_write write{
          .path = path, .kind = ledger_kind::text, .value = value, .owner = path.size() - 2};
      EXPECT_EQ(store.write({&write, 1}), 0);
    }
    configuration_copy copy{.made = 1, .items = {}};
    EXPECT_EQ(store.snapshot(copy.items), 0);
    EXPECT_EQ(write_configuration_copy(configuration_copy_path(), copy, error), 0) << error;
    return in_order(store);
  }

  ledger_place place_;
};

TEST_F(configuration_store, a_restored_one_has_the_items_in_their_orders) {
  make();
  std::vector<std::string> before;
  std::vector<std::string> first_before;
  {
    // Changed items move in one order and keep their place in the other.
    lmdb_store store;
    std::string error;
    ASSERT_EQ(open_configuration(store, map_bytes, error), 0) << error;
    for (int i = 0; i < items; i += 3) {
      const auto value = bytes_of("changed");
      const std::string path = path_of(i);
      const ledger_write write{
          .path = path, .kind = ledger_kind::text, .value = value, .owner = path.size() - 2};
      ASSERT_EQ(store.write({&write, 1}), 0);
    }
    before = in_order(store);
    first_before = in_first_order(store);
    configuration_copy copy{.made = 1, .items = {}};
    ASSERT_EQ(store.snapshot(copy.items), 0);
    ASSERT_EQ(write_configuration_copy(configuration_copy_path(), copy, error), 0) << error;
  }
  ASSERT_EQ(before.size(), static_cast<std::size_t>(items));
  truncate(configuration_path().c_str(), 0);
  std::string text;
  ASSERT_EQ(restore_configuration(map_bytes, text), 0) << text;
  EXPECT_THAT(text,
              HasSubstr("(300 items) is the configuration now; what was there before is kept"));
  lmdb_store store;
  ASSERT_EQ(open_configuration(store, map_bytes, text), 0) << text;
  EXPECT_EQ(in_order(store), before);
  EXPECT_EQ(in_first_order(store), first_before);
}

TEST_F(configuration_store, the_first_start_makes_it_and_a_crash_then_leaves_nothing_half_done) {
  std::ofstream{configuration_path() + ".new"} << "what a killed start left";
  lmdb_store store;
  std::string error;
  ASSERT_EQ(open_configuration(store, map_bytes, error), 0) << error;
  EXPECT_FALSE(fs::exists(configuration_path() + ".new"));
  EXPECT_TRUE(in_order(store).empty());
}

// Zeros or garbage over a part of the file, or its end cut off.
std::string damage_at_random(const std::string& path, std::mt19937& chance) {
  constexpr std::size_t in_use = std::size_t{160} << 10;
  const std::size_t at = chance() % in_use / 16 * 16;
  const std::size_t length = 16 + chance() % 8192;
  const auto kind = chance() % 3;
  if (kind == 0) {
    EXPECT_EQ(truncate(path.c_str(), static_cast<off_t>(at)), 0);
    return "cut at " + std::to_string(at);
  }
  std::string bytes(length, '\0');
  for (char& byte : bytes) {
    byte = kind == 1 ? '\0' : static_cast<char>(chance());
  }
  const unique_fd file{open(path.c_str(), O_WRONLY | O_CLOEXEC)};
  EXPECT_EQ(pwrite(file.get(), bytes.data(), bytes.size(), static_cast<off_t>(at)),
            static_cast<ssize_t>(bytes.size()));
  return (kind == 1 ? "zeros at " : "garbage at ") + std::to_string(at) + ", " +
         std::to_string(length) + " bytes";
}

TEST_F(configuration_store, however_damaged_it_is_never_taken_with_fewer_items) {
  const unsigned seed = one_seed();
  SCOPED_TRACE(shown(seed));
  std::mt19937 chance{seed};
  make();
  const std::string path = configuration_path();
  const std::string good = path + ".good";
  fs::copy_file(path, good);
  int refused = 0;
  for (int round = 0; round < rounds; ++round) {
    fs::copy_file(good, path, fs::copy_options::overwrite_existing);
    SCOPED_TRACE(damage_at_random(path, chance));
    lmdb_store store;
    std::string error;
    if (open_configuration(store, map_bytes, error) == 0) {
      EXPECT_EQ(in_order(store).size(), static_cast<std::size_t>(items));
      // What it stands on holds: it can be written to.
      const auto value = bytes_of_numbers({1});
      const ledger_write write{.path = "/cfg/gl/more", .value = value};
      EXPECT_EQ(store.write({&write, 1}), 0);
    } else {
      EXPECT_THAT(error, HasSubstr(path));
      ++refused;
    }
  }
  EXPECT_GT(refused, rounds / 10);
}

TEST_F(configuration_store, a_copy_with_any_byte_changed_is_not_good) {
  make();
  std::string error;
  configuration_copy copy;
  const std::string path = configuration_copy_path();
  const auto size = static_cast<off_t>(fs::file_size(path));
  const unique_fd file{open(path.c_str(), O_RDWR | O_CLOEXEC)};
  for (off_t at = 0; at < size; at += at < 64 ? 1 : 97) {
    if (at >= 8 && at < 16) {
      continue;  // the time of its making
    }
    char byte = 0;
    ASSERT_EQ(pread(file.get(), &byte, 1, at), 1);
    const char changed = static_cast<char>(byte ^ 0x10);
    ASSERT_EQ(pwrite(file.get(), &changed, 1, at), 1);
    EXPECT_EQ(read_configuration_copy(path, copy, error), EBADMSG) << at;
    ASSERT_EQ(pwrite(file.get(), &byte, 1, at), 1);
  }
  EXPECT_EQ(read_configuration_copy(path, copy, error), 0) << error;
  for (off_t length = size - 1; length >= 0; length -= length < 64 ? 1 : 997) {
    ASSERT_EQ(ftruncate(file.get(), length), 0);
    EXPECT_EQ(read_configuration_copy(path, copy, error), EBADMSG) << length;
  }
}

TEST_F(configuration_store, a_copy_of_the_same_items_is_not_written_again) {
  make();
  struct stat before {};
  ASSERT_EQ(stat(configuration_copy_path().c_str(), &before), 0);
  lmdb_store store;
  std::string error;
  ASSERT_EQ(open_configuration(store, map_bytes, error), 0) << error;
  configuration_copy copy{.made = 2, .items = {}};
  ASSERT_EQ(store.snapshot(copy.items), 0);
  ASSERT_EQ(write_configuration_copy(configuration_copy_path(), copy, error), 0) << error;
  struct stat after {};
  ASSERT_EQ(stat(configuration_copy_path().c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
  copy.items.pop_back();
  ASSERT_EQ(write_configuration_copy(configuration_copy_path(), copy, error), 0) << error;
  ASSERT_EQ(stat(configuration_copy_path().c_str(), &after), 0);
  EXPECT_NE(before.st_ino, after.st_ino);
}

}  // namespace
}  // namespace ot::test
