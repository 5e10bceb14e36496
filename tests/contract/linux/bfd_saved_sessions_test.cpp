// What BFD sessions leave for a start after a crash: as they were, or nothing at all.
#include "platform/linux/bfd/own/saved_sessions.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace ot::bfd {
namespace {

namespace fs = std::filesystem;

class bfd_saved_sessions : public testing::Test {
 protected:
  void SetUp() override {
    char folder[] = "/tmp/ot-saved-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    folder_ = folder;
    path_ = folder_ + "/bfd_sessions";
  }
  void TearDown() override { fs::remove_all(folder_); }

  // Patient enough for any test unless told otherwise.
  static saved_session a_session(std::uint32_t number, std::uint32_t interval_ms = 60'000) {
    saved_session session;
    session.config = {{interface_name{"eth" + std::to_string(number)}, 0x0200000aU + number},
                      0x0100000aU,
                      interval_ms,
                      3};
    session.path = {number, 0x0200000aU + number, 0x0100000aU};
    session.agreed = {1000 + number, interval_ms * 1000, interval_ms * 1000, {}};
    control_packet& remote = session.agreed.remote;
    remote.state = session_state::up;
    remote.detect_multiplier = 5;
    remote.my_discriminator = 2000 + number;
    remote.your_discriminator = 1000 + number;
    remote.desired_min_tx = 70'000;
    remote.required_min_rx = 80'000;
    return session;
  }
  // A process saves these, and crashes.
  void leave(const std::vector<saved_session>& sessions, std::uint16_t port = 50'000) {
    saved_sessions crashed;
    crashed.take_over(path_);
    crashed.keep_source_port(port);
    for (const saved_session& session : sessions) crashed.keep(crashed.take_slot(), session);
    crashed.stamp();
  }
  std::vector<saved_session> found() { return next_.take_over(path_); }
  std::vector<char> bytes() {
    std::ifstream file(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  void put(const std::vector<char>& content) {
    std::ofstream(path_, std::ios::binary)
        .write(content.data(), static_cast<std::streamsize>(content.size()));
  }

  std::string folder_;
  std::string path_;
  saved_sessions next_;
};

bool same(const saved_session& a, const saved_session& b) {
  return a.config == b.config && a.path == b.path && a.agreed == b.agreed;
}

TEST_F(bfd_saved_sessions, are_found_as_they_were_and_once) {
  const std::vector<saved_session> left = {a_session(1), a_session(2), a_session(3)};
  leave(left);
  const auto taken = found();
  ASSERT_EQ(taken.size(), left.size());
  for (std::size_t i = 0; i < left.size(); ++i) EXPECT_TRUE(same(taken[i], left[i])) << i;
  EXPECT_EQ(next_.source_port(), 50'000);
  saved_sessions third;
  EXPECT_TRUE(third.take_over(path_).empty()) << "the file has begun anew";
}

TEST_F(bfd_saved_sessions, that_were_forgotten_or_given_up_are_not_found) {
  {
    saved_sessions crashed;
    crashed.take_over(path_);
    const std::uint32_t first = crashed.take_slot();
    const std::uint32_t second = crashed.take_slot();
    const std::uint32_t third = crashed.take_slot();
    crashed.keep(first, a_session(1));
    crashed.keep(second, a_session(2));
    crashed.keep(third, a_session(3));
    crashed.forget(first);
    crashed.free_slot(second);
    crashed.stamp();
  }
  const auto taken = found();
  ASSERT_EQ(taken.size(), 1U);
  EXPECT_TRUE(same(taken[0], a_session(3)));
}

TEST_F(bfd_saved_sessions, take_the_places_of_those_that_were_given_up) {
  saved_sessions running;
  running.take_over(path_);
  const std::uint32_t first = running.take_slot();
  const std::uint32_t second = running.take_slot();
  EXPECT_NE(first, second);
  const auto size = fs::file_size(path_);
  running.keep(first, a_session(1));
  for (int i = 0; i < 1000; ++i) {
    running.free_slot(first);
    EXPECT_EQ(running.take_slot(), first);
    running.keep(first, a_session(7));
  }
  EXPECT_EQ(fs::file_size(path_), size);
  const auto taken = found();
  ASSERT_EQ(taken.size(), 1U);
  EXPECT_TRUE(same(taken[0], a_session(7)));
}

TEST_F(bfd_saved_sessions, of_neighbors_that_cannot_have_waited_are_not_found) {
  saved_session patient = a_session(1);
  saved_session slow_neighbor = a_session(2, 1);
  slow_neighbor.agreed.remote.required_min_rx = 60'000'000;
  saved_session brisk = a_session(3, 1);
  brisk.agreed.remote.required_min_rx = 1000;
  leave({patient, brisk, slow_neighbor});
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(4);
  while (std::chrono::steady_clock::now() < until) {
  }
  const auto taken = found();
  ASSERT_EQ(taken.size(), 2U);
  EXPECT_TRUE(same(taken[0], patient));
  EXPECT_TRUE(same(taken[1], slow_neighbor)) << "it expects packets as rarely as it wants them";
}

TEST_F(bfd_saved_sessions, are_counted_as_run_when_that_was_last_said) {
  saved_sessions crashed;
  crashed.take_over(path_);
  saved_session brisk = a_session(1, 200);
  brisk.agreed.remote.required_min_rx = 200'000;
  crashed.keep(crashed.take_slot(), brisk);
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(700);
  while (std::chrono::steady_clock::now() < until) {
  }
  crashed.stamp();
  EXPECT_EQ(found().size(), 1U);
}

TEST_F(bfd_saved_sessions, are_none_after_a_clean_end) {
  saved_sessions ended;
  ended.take_over(path_);
  ended.keep(ended.take_slot(), a_session(1));
  ended.remove();
  EXPECT_FALSE(fs::exists(path_));
  EXPECT_TRUE(found().empty());
}

// Whatever octet is wrong: a session is found as it was, or not at all.
TEST_F(bfd_saved_sessions, are_never_found_other_than_they_were) {
  const std::vector<saved_session> left = {a_session(1), a_session(2), a_session(3)};
  leave(left);
  const std::vector<char> whole = bytes();
  for (std::size_t at = 0; at < whole.size(); ++at) {
    std::vector<char> damaged = whole;
    damaged[at] = static_cast<char>(damaged[at] ^ 0x10);
    put(damaged);
    const auto taken = found();
    EXPECT_LT(taken.size(), left.size()) << at;
    for (const saved_session& session : taken) {
      EXPECT_TRUE(std::any_of(left.begin(), left.end(), [&](const saved_session& one) {
        return same(one, session);
      })) << at;
    }
  }
}

TEST_F(bfd_saved_sessions, are_found_beside_one_that_is_damaged) {
  leave({a_session(1), a_session(2), a_session(3)});
  std::vector<char> content = bytes();
  content[content.size() / 2] ^= 1;  // of the second
  put(content);
  const auto taken = found();
  ASSERT_EQ(taken.size(), 2U);
  EXPECT_TRUE(same(taken[0], a_session(1)));
  EXPECT_TRUE(same(taken[1], a_session(3)));
}

TEST_F(bfd_saved_sessions, are_found_as_far_as_the_file_goes) {
  leave({a_session(1), a_session(2), a_session(3)});
  const std::vector<char> whole = bytes();
  std::size_t most = 3;
  for (std::size_t size = whole.size(); size-- > 0;) {
    put({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)});
    const std::size_t count = found().size();
    EXPECT_LE(count, most) << size;
    most = count;
  }
  EXPECT_EQ(most, 0U);
}

TEST_F(bfd_saved_sessions, are_not_sought_in_what_another_has_written) {
  std::mt19937 random(5880);
  for (const std::size_t size : {0UL, 1UL, 100UL, 10'000UL, 3'000'000UL}) {
    std::vector<char> noise(size);
    std::generate(noise.begin(), noise.end(), [&] { return static_cast<char>(random()); });
    put(noise);
    EXPECT_TRUE(found().empty()) << size;
    EXPECT_LT(fs::file_size(path_), 1000U) << "it has begun anew";
  }
}

TEST_F(bfd_saved_sessions, of_a_huge_file_are_read_up_to_a_limit) {
  {
    saved_sessions crashed;
    crashed.take_over(path_);
    for (std::uint32_t i = 0; i < 10'000; ++i) crashed.keep(crashed.take_slot(), a_session(i));
    crashed.stamp();
  }
  fs::resize_file(path_, std::uintmax_t{1} << 40);  // it has holes
  const auto taken = found();
  EXPECT_GE(taken.size(), 1000U);
  EXPECT_LE(taken.size(), 10'000U);
}

TEST_F(bfd_saved_sessions, do_not_follow_links_nor_wait_for_a_writer) {
  const std::string other = folder_ + "/other";
  leave({a_session(1)});
  fs::rename(path_, other);
  const auto before = fs::file_size(other);
  fs::create_symlink(other, path_);
  EXPECT_TRUE(found().empty());
  EXPECT_EQ(fs::file_size(other), before) << "another's file is left alone";
  EXPECT_FALSE(fs::is_symlink(path_));
  fs::remove(path_);
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_TRUE(found().empty());
  EXPECT_TRUE(fs::is_regular_file(path_));
}

TEST_F(bfd_saved_sessions, are_not_kept_where_nothing_can_be_written) {
  path_ = folder_ + "/none/bfd_sessions";
  saved_sessions running;
  EXPECT_TRUE(running.take_over(path_).empty());
  running.keep(running.take_slot(), a_session(1));
  running.stamp();
  running.remove();
  EXPECT_FALSE(fs::exists(folder_ + "/none"));
  path_ = folder_ + "/folder";
  fs::create_directory(path_);
  saved_sessions other;
  EXPECT_TRUE(other.take_over(path_).empty());
  other.keep(other.take_slot(), a_session(1));
  EXPECT_TRUE(fs::is_directory(path_));
}

TEST_F(bfd_saved_sessions, are_nobody_else_s_to_read) {
  leave({a_session(1)});
  struct stat status {};
  ASSERT_EQ(stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

}  // namespace
}  // namespace ot::bfd
