// Nobody ever reads half of one publication and half of another: not while the writer hammers the
// table, and not after it was killed in the middle.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <random>
#include <thread>

#include "platform/linux/monotonic.h"
#include "platform/linux/unique_fd.h"
#include "tests/qmond/table_fixture.h"

namespace ot::qmond {
namespace {

constexpr std::uint32_t op_id = 77;
constexpr int reads_wanted = 1000000;
// As many publications must have been met for the reads to prove anything.
constexpr int changes_wanted = 1000;
constexpr int reads_max = 500 * reads_wanted;

// A publication in which every word holds the number of the whole.
statistics numbered(std::uint32_t number) {
  statistics words;
  words.fill(number);
  return words;
}

bool whole(const statistics& words) {
  statistics expected = numbered(words[word_return_code]);
  expected[word_op_id] = op_id;
  expected[word_use] = static_cast<std::uint32_t>(slot_use::running);
  return words == expected;
}

TEST_F(qmond_table, a_million_reads_under_a_hammering_writer_are_whole) {
  table_writer writer(path_, 1);
  const std::uint32_t slot = writer.add(op_id, {}).value();
  writer.publish(slot, numbered(0));
  writer.install();
  std::atomic<bool> done = false;
  std::thread hammer([&] {
    for (std::uint32_t number = 1; !done; ++number) {
      writer.publish(slot, numbered(number));
    }
  });
  table_view view;
  const int opened = view.open(path_);
  int torn = 0;
  int changes = 0;
  int backwards = 0;
  std::uint32_t last = 0;
  int reads = 0;
  while (opened == 0 && reads < reads_max && (reads < reads_wanted || changes < changes_wanted)) {
    ++reads;
    statistics found;
    torn += view.look_up(op_id, &found) && whole(found) ? 0 : 1;
    const std::uint32_t number = found[word_return_code];
    changes += number != last ? 1 : 0;
    backwards += number < last ? 1 : 0;
    last = number;
  }
  done = true;
  hammer.join();
  EXPECT_EQ(opened, 0);
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(backwards, 0);
  EXPECT_GE(reads, reads_wanted);
  EXPECT_GE(changes, changes_wanted);
}

// A child process that does not outlive its test.
class child_process {
 public:
  explicit child_process(pid_t pid) noexcept : pid_(pid) {}
  ~child_process() { end(); }
  child_process(const child_process&) = delete;
  child_process& operator=(const child_process&) = delete;

  void end() noexcept {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
      pid_ = -1;
    }
  }
  [[nodiscard]] bool started() const noexcept { return pid_ > 0; }

 private:
  pid_t pid_;
};

// Starts a process that makes a table and publishes as fast as it can; it is ready when it has
// written a byte to `ready`.
pid_t start_writer(const std::string& path, int ready) {
  const pid_t child = fork();
  if (child != 0) {
    return child;
  }
  table_writer writer(path, 1);
  const std::uint32_t slot = writer.add(op_id, {}).value();
  writer.publish(slot, numbered(0));
  writer.install();
  if (write(ready, "x", 1) != 1) {
    _exit(1);
  }
  for (std::uint32_t number = 1;; ++number) {
    writer.publish(slot, numbered(number));
  }
}

TEST_F(qmond_table, a_writer_killed_at_any_point_leaves_a_whole_result) {
  std::mt19937 random(2);
  for (int round = 0; round < 200; ++round) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const unique_fd input(ready[0]);
    const unique_fd output(ready[1]);
    child_process writer(start_writer(path_, output.get()));
    ASSERT_TRUE(writer.started());
    char byte = 0;
    ASSERT_EQ(read(input.get(), &byte, 1), 1);
    table_view view;
    ASSERT_EQ(view.open(path_), 0) << "the table of a killed writer is in the way";
    statistics found;
    // Some reads while it writes decide where it is killed.
    for (auto reads = random() % 3000; reads > 0; --reads) {
      ASSERT_TRUE(view.look_up(op_id, &found) && whole(found));
    }
    writer.end();
    ASSERT_TRUE(view.look_up(op_id, &found) && whole(found)) << "round " << round;
    set_heartbeat(monotonic_ms() - heartbeat_max_age_ms);
    EXPECT_FALSE(view.live()) << "but it does not count for long";
  }
}

}  // namespace
}  // namespace ot::qmond
