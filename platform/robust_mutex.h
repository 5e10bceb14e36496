// A mutex that outlives its owner: when the owner died holding it, the next one to lock it gets it
// together with the news, makes it consistent and goes on. A failure of the underlying calls is a
// defect and ends the process ("%s: %d %s -- assertion failed").
#pragma once

#include <pthread.h>

#include <cstdint>

namespace ot {

enum class robust_mutex_scope { threads, processes };

class robust_mutex {
 public:
  // `processes`: the object may live in memory shared between processes.
  explicit robust_mutex(robust_mutex_scope scope = robust_mutex_scope::threads);
  ~robust_mutex();
  robust_mutex(const robust_mutex&) = delete;
  robust_mutex& operator=(const robust_mutex&) = delete;

  // Tries first; announces a wait under `who` to the lock diagnostics, then blocks. After an
  // owner's death the mutex is made consistent before the call returns; while another thread is
  // reviving it, waits for that to end.
  void lock(const char* who);
  void unlock();

  // How often an owner died holding it.
  [[nodiscard]] std::uint32_t revivals() const noexcept { return revivals_; }
  // How often a lock had to wait.
  [[nodiscard]] std::uint32_t waits() const noexcept { return waits_; }

 private:
  pthread_mutex_t mutex_;
  std::uint32_t revivals_ = 0;
  std::uint32_t waits_ = 0;
};

// Holds a robust_mutex for a scope.
class robust_lock {
 public:
  robust_lock(robust_mutex& mutex, const char* who) : mutex_(mutex) { mutex_.lock(who); }
  ~robust_lock() { mutex_.unlock(); }
  robust_lock(const robust_lock&) = delete;
  robust_lock& operator=(const robust_lock&) = delete;

 private:
  robust_mutex& mutex_;
};

}  // namespace ot
