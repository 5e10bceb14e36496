// The robust mutex: who dies holding it must not keep the others out, neither a thread nor a
// process that was killed.
#include "platform/robust_mutex.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <future>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace ot {
namespace {

TEST(robust_mutex, keeps_others_out) {
  robust_mutex mutex;
  int count = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 20'000; ++round) {
        const robust_lock lock(mutex, "test");
        ++count;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(count, 80'000);
  EXPECT_EQ(mutex.revivals(), 0U);
}

// Whether the thread with this id of this process sleeps in the kernel.
bool sleeps(pid_t thread) {
  std::string state;
  std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/stat");
  status >> state >> state >> state;  // id, name, state
  return state == "S";
}

TEST(robust_mutex, counts_a_lock_that_had_to_wait) {
  robust_mutex mutex;
  mutex.lock("holder");
  std::promise<pid_t> id;
  std::thread waiter([&] {
    id.set_value(gettid());
    const robust_lock lock(mutex, "waiter");
  });
  const pid_t thread = id.get_future().get();
  while (!sleeps(thread)) {
    std::this_thread::yield();
  }
  mutex.unlock();
  waiter.join();
  EXPECT_EQ(mutex.waits(), 1U);
}

TEST(robust_mutex, is_revived_after_its_thread_ended) {
  robust_mutex mutex;
  std::thread([&] { mutex.lock("dying thread"); }).join();
  mutex.lock("heir");
  EXPECT_EQ(mutex.revivals(), 1U);
  mutex.unlock();
  { const robust_lock again(mutex, "heir"); }
  EXPECT_EQ(mutex.revivals(), 1U) << "it has been made consistent";
}

// A mutex in memory that this process shares with its children.
class shared_mutex {
 public:
  shared_mutex()
      : memory_(mmap(nullptr, sizeof(shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                     -1, 0)),
        shared_(new (memory_) shared) {}
  ~shared_mutex() {
    shared_->~shared();
    munmap(memory_, sizeof(shared));
  }
  robust_mutex& mutex() { return shared_->mutex; }
  std::atomic<bool>& held() { return shared_->held; }

 private:
  struct shared {
    robust_mutex mutex{robust_mutex_scope::processes};
    std::atomic<bool> held{false};
  };
  void* memory_;
  shared* shared_;
};

TEST(robust_mutex, is_revived_after_its_process_was_killed) {
  shared_mutex shared;
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    shared.mutex().lock("child");
    shared.held() = true;
    for (;;) {
      pause();
    }
  }
  while (!shared.held()) {
    std::this_thread::yield();
  }
  std::thread heir([&] {
    const robust_lock lock(shared.mutex(), "heir");  // waits, or comes after the death
  });
  ASSERT_EQ(kill(child, SIGKILL), 0);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  heir.join();
  EXPECT_EQ(shared.mutex().revivals(), 1U);
  const robust_lock lock(shared.mutex(), "test");
  EXPECT_EQ(shared.mutex().revivals(), 1U);
}

TEST(robust_mutex, lets_everyone_through_after_a_revival) {
  robust_mutex mutex;
  std::thread([&] { mutex.lock("dying thread"); }).join();
  std::atomic<int> through{0};
  std::vector<std::thread> heirs;
  for (int i = 0; i < 8; ++i) {
    heirs.emplace_back([&] {
      const robust_lock lock(mutex, "heir");
      ++through;
    });
  }
  for (std::thread& heir : heirs) {
    heir.join();
  }
  EXPECT_EQ(through, 8);
  EXPECT_EQ(mutex.revivals(), 1U);
}

using robust_mutex_death = ::testing::Test;

TEST(robust_mutex_death, a_defect_ends_the_process) {
  ::testing::GTEST_FLAG(death_test_style) = "threadsafe";
  EXPECT_DEATH(
      {
        robust_mutex mutex;
        mutex.unlock();
      },
      "unlock: 1 Operation not permitted -- assertion failed");
  EXPECT_DEATH(
      {
        robust_mutex mutex;
        mutex.lock("first");
        mutex.lock("second");
      },
      "second: 35 Resource deadlock avoided -- assertion failed");
}

}  // namespace
}  // namespace ot
