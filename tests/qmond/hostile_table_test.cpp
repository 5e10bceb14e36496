// Whatever becomes of the table's file while it is read, a reader gets no signal, is not kept busy,
// and finds nothing but what was published.
#include <sys/stat.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <optional>
#include <random>
#include <thread>
#include <vector>

#include "platform/linux/monotonic.h"
#include "tests/qmond/table_fixture.h"

namespace ot::qmond {
namespace {

constexpr std::uint32_t operation_count = 16;
constexpr int reads_wanted = 100000;
// So often operations that run were found, and were not, or the reads prove nothing.
constexpr int answers_wanted = 2000;
constexpr int acts_wanted = 5000;
constexpr int reads_max = 100 * reads_wanted;

// A publication in which every word says whose and which it is.
statistics marked(std::uint32_t op_id, std::uint32_t generation) {
  statistics words;
  words.fill(op_id << 8 | generation);
  return words;
}

bool published(std::uint32_t op_id, const statistics& words) {
  statistics expected = marked(op_id, words[word_return_code] & 0xff);
  expected[word_op_id] = op_id;
  expected[word_use] = static_cast<std::uint32_t>(slot_use::running);
  return words == expected;
}

// Does to a table's file what only somebody with the writer's rights can.
class vandal {
 public:
  // Learns what a good table looks like.
  explicit vandal(std::string path) : path_(std::move(path)) {
    const unique_fd file(open(path_.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    EXPECT_EQ(fstat(file.get(), &status), 0);
    good_.resize(static_cast<std::size_t>(status.st_size));
    EXPECT_EQ(pread(file.get(), good_.data(), good_.size(), 0), static_cast<ssize_t>(good_.size()));
  }

  void act() {
    const unique_fd file(open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    switch (random_() % 8) {
      case 0:
        EXPECT_EQ(ftruncate(file.get(), static_cast<off_t>(random_() % good_.size())), 0);
        break;
      case 1:
        put(file, 0, garbage(good_.size()));
        break;
      case 2:  // the header stays good
        put(file, sizeof(table_header), garbage(good_.size() - sizeof(table_header)));
        break;
      case 3:
        put(file, random_() % good_.size(), garbage(random_() % 200));
        break;
      case 4:
        put(file, sizeof(table_header), std::vector<char>(good_.size(), '\xff'));
        break;
      case 5:
        replace();
        break;
      default:
        restore(file);
        break;
    }
  }

  void restore() { restore(unique_fd(open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600))); }

 private:
  std::vector<char> garbage(std::size_t size) {
    std::vector<char> bytes(size);
    for (char& byte : bytes) {
      byte = static_cast<char>(random_());
    }
    return bytes;
  }
  static void put(const unique_fd& file, std::size_t offset, const std::vector<char>& bytes) {
    EXPECT_EQ(pwrite(file.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset)),
              static_cast<ssize_t>(bytes.size()));
  }
  void restore(const unique_fd& file) {
    reinterpret_cast<table_header*>(good_.data())->heartbeat_ms = monotonic_ms();
    EXPECT_EQ(ftruncate(file.get(), static_cast<off_t>(good_.size())), 0);
    put(file, 0, good_);
  }
  void replace() {
    const std::string other = path_ + ".other";
    const unique_fd file(open(other.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    put(file, 0, garbage(random_() % good_.size()));
    EXPECT_EQ(std::rename(other.c_str(), path_.c_str()), 0);
  }

  std::string path_;
  std::vector<char> good_;
  std::mt19937 random_{3};
};

class qmond_hostile_table : public qmond_table {
 protected:
  // A table with operations 1 to operation_count.
  void SetUp() override {
    qmond_table::SetUp();
    table_writer writer(path_, operation_count);
    for (std::uint32_t id = 1; id <= operation_count; ++id) {
      const std::uint32_t slot = writer.add(id, {}).value();
      for (std::uint32_t generation = 0; generation < 3; ++generation) {
        writer.publish(slot, marked(id, generation));
      }
    }
    writer.install();
    vandal_.emplace(path_);
  }

  std::optional<vandal> vandal_;
};

TEST_F(qmond_hostile_table, a_hundred_thousand_reads_get_no_signal_and_no_lie) {
  std::atomic<bool> done = false;
  std::atomic<int> acts = 0;
  std::thread damage([&] {
    for (; !done; ++acts) {
      vandal_->act();
    }
  });
  table_view view;
  int found_some = 0;
  int found_none = 0;
  int lies = 0;
  const auto enough = [&](int reads) {
    return reads >= reads_wanted && found_some >= answers_wanted && found_none >= answers_wanted &&
           acts >= acts_wanted;
  };
  for (int reads = 0; reads < reads_max && !enough(reads); ++reads) {
    // Also a file that was put in the open one's place is to be met.
    if (reads % 50 == 0 || !view.live()) {
      (void)view.open(path_);
    }
    // Half of the ids have no operation.
    const std::uint32_t id = static_cast<std::uint32_t>(reads) % (2 * operation_count) + 1;
    statistics words;
    const bool found = view.is_open() && view.live() && view.look_up(id, &words);
    found_some += found ? 1 : 0;
    found_none += !found && id <= operation_count ? 1 : 0;
    lies += found && (id > operation_count || !published(id, words)) ? 1 : 0;
  }
  done = true;
  damage.join();
  EXPECT_EQ(lies, 0);
  EXPECT_GE(found_some, answers_wanted);
  EXPECT_GE(found_none, answers_wanted);
}

TEST_F(qmond_hostile_table, what_was_damaged_and_made_good_is_believed_again) {
  table_view view;
  ASSERT_EQ(view.open(path_), 0);
  for (int round = 0; round < 200; ++round) {
    vandal_->act();
    vandal_->restore();
    ASSERT_TRUE(view.live() || view.open(path_) == 0);
    ASSERT_TRUE(view.live());
    statistics words;
    ASSERT_TRUE(view.look_up(1, &words) && published(1, words));
  }
}

double cpu_seconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// A table of the largest size in which every statistics cell is the same.
class qmond_full_table : public qmond_table {
 protected:
  void fill(const statistics_cell& cell) {
    writer_.emplace(path_, operations_max);
    writer_->install();
    const unique_fd file(open(path_.c_str(), O_WRONLY | O_CLOEXEC));
    for (std::uint32_t slot = 0; slot < slots_max; ++slot) {
      ASSERT_EQ(pwrite(file.get(), &cell, sizeof cell,
                       static_cast<off_t>(statistics_offset() + slot * sizeof cell)),
                ssize_t{sizeof cell});
    }
  }
  // A thousand look-ups of operations that are not there.
  void expect_short_searches() {
    table_view view;
    ASSERT_EQ(view.open(path_), 0);
    const double before = cpu_seconds();
    for (std::uint32_t id = 0; id < 1000; ++id) {
      statistics found;
      EXPECT_FALSE(view.look_up(id * 131, &found));
    }
    EXPECT_LT(cpu_seconds() - before, 1.0);
  }

  std::optional<table_writer> writer_;
};

TEST_F(qmond_full_table, is_searched_a_bounded_way_when_all_slots_are_vacated) {
  statistics words{};
  words[word_use] = static_cast<std::uint32_t>(slot_use::vacated);
  statistics_cell cell;
  cell.publish(words);
  fill(cell);
  expect_short_searches();
}

TEST_F(qmond_full_table, is_searched_a_bounded_way_when_all_slots_are_damaged) {
  statistics_cell cell;
  std::memset(static_cast<void*>(&cell), 'x', sizeof cell);
  fill(cell);
  expect_short_searches();
}

TEST_F(qmond_full_table, is_searched_a_bounded_way_when_another_operation_is_everywhere) {
  statistics words{};
  words[word_use] = static_cast<std::uint32_t>(slot_use::running);
  words[word_op_id] = 77;
  statistics_cell cell;
  cell.publish(words);
  fill(cell);
  expect_short_searches();
}

}  // namespace
}  // namespace ot::qmond
