// The mutex that survives its owner.
#include "platform/robust_mutex.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <new>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace ot::contract {
namespace {

TEST(robust_mutex_contract, an_owners_death_is_noticed_and_revived) {
  robust_mutex mutex;
  std::thread owner{[&] { mutex.lock("owner"); }};  // ends without unlocking
  owner.join();
  mutex.lock("heir");
  EXPECT_EQ(mutex.revivals(), 1u);
  mutex.unlock();
  mutex.lock("later");
  EXPECT_EQ(mutex.revivals(), 1u);
  mutex.unlock();
}

TEST(robust_mutex_contract, a_revived_mutex_excludes_again) {
  robust_mutex mutex;
  std::thread owner{[&] { mutex.lock("owner"); }};
  owner.join();
  int counter = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 2000; ++round) {
        const robust_lock lock{mutex, "counting"};
        ++counter;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(counter, 8000);
  EXPECT_EQ(mutex.revivals(), 1u);
}

// One round: another thread goes for the mutex while this one holds it, for a moment.
void contend(robust_mutex& mutex) {
  std::atomic<bool> trying = false;
  mutex.lock("first");
  std::thread second{[&] {
    trying = true;
    const robust_lock lock{mutex, "second"};
  }};
  while (!trying) {
    std::this_thread::yield();
  }
  std::this_thread::yield();
  mutex.unlock();
  second.join();
}

TEST(robust_mutex_contract, only_a_lock_that_has_to_wait_is_counted) {
  robust_mutex mutex;
  for (int i = 0; i < 100; ++i) {
    const robust_lock lock{mutex, "alone"};
  }
  EXPECT_EQ(mutex.waits(), 0u);
  for (int round = 0; round < 10'000 && mutex.waits() == 0; ++round) {
    contend(mutex);
  }
  EXPECT_EQ(mutex.waits(), 1u);
}

TEST(robust_mutex_contract, a_process_that_dies_leaves_a_mutex_in_shared_memory_usable) {
  void* memory = mmap(nullptr, sizeof(robust_mutex), PROT_READ | PROT_WRITE,
                      MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  auto* mutex = new (memory) robust_mutex{robust_mutex_scope::processes};
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    mutex->lock("child");
    _exit(0);
  }
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
  mutex->lock("parent");
  EXPECT_EQ(mutex->revivals(), 1u);
  mutex->unlock();
  mutex->~robust_mutex();
  munmap(memory, sizeof(robust_mutex));
}

}  // namespace
}  // namespace ot::contract
