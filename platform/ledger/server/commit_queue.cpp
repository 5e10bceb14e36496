// The thread begins with the first commit and lives as long as the queue. Without one, for lack of
// memory, the loop stores itself. A commit's apply and the next one's verifiers have a turn of the
// loop each.
#include "platform/ledger/server/commit_queue.h"

#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>
#include <utility>

#include "platform/ledger_status.h"

namespace ot {

ledger_commit_queue::~ledger_commit_queue() {
  close();
}

int ledger_commit_queue::open(sd_event* loop) noexcept {
  stored_event_ = unique_fd{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  if (!stored_event_.valid()) {
    return errno;
  }
  sd_event_source* stored = nullptr;
  sd_event_source* next = nullptr;
  int result = sd_event_add_io(loop, &stored, stored_event_.get(), EPOLLIN, on_stored, this);
  on_stored_.reset(stored);
  if (result >= 0) {
    result = sd_event_add_defer(loop, &next, on_next, this);
    on_next_.reset(next);
  }
  if (result >= 0) {
    result = sd_event_source_set_enabled(next, SD_EVENT_OFF);
  }
  return result < 0 ? -result : 0;
}

void ledger_commit_queue::submit(ledger_commit_client& client, ledger_commit_request request) {
  queue_.push_back({&client, std::move(request)});
  if (run_ == nullptr && queue_.size() == 1) {
    begin_next();
  }
}

void ledger_commit_queue::forget(const ledger_commit_client& client) noexcept {
  std::erase_if(queue_, [&client](const waiting& item) { return item.client == &client; });
  client_ = client_ == &client ? nullptr : client_;
}

void ledger_commit_queue::begin_next() noexcept {
  if (run_ != nullptr || queue_.empty()) {
    return;
  }
  waiting next = std::move(queue_.front());
  queue_.pop_front();
  try {
    begin(next);
  } catch (const std::bad_alloc&) {
    next.client->commit_done(no_memory, {});
  }
  if (run_ == nullptr && !queue_.empty()) {
    sd_event_source_set_enabled(on_next_.get(), SD_EVENT_ONESHOT);
  }
}

void ledger_commit_queue::begin(waiting& next) {
  std::vector<ledger_refusal> refusals;
  const int status = engine_.begin_commit(std::move(next.request.changes), next.request.generation,
                                          refusals, run_);
  if (run_ == nullptr) {
    next.client->commit_done(status, refusals);
    return;
  }
  client_ = next.client;
  if (!start_thread()) {
    stored_ = run_->store();
    finish();
    return;
  }
  const std::lock_guard lock{mutex_};
  to_store_ = run_.get();
  wake_.notify_one();
}

bool ledger_commit_queue::start_thread() noexcept {
  try {
    if (!thread_.joinable()) {
      thread_ = std::thread{[this] { store_in_turn(); }};
      pthread_setname_np(thread_.native_handle(), "ot_store");
    }
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

// The thread.
void ledger_commit_queue::store_in_turn() noexcept {
  std::unique_lock lock{mutex_};
  for (;;) {
    wake_.wait(lock, [this] { return closing_ || to_store_ != nullptr; });
    if (to_store_ == nullptr) {
      return;
    }
    ledger_commit_run& run = *to_store_;
    lock.unlock();
    const int status = run.store();
    lock.lock();
    to_store_ = nullptr;
    stored_ = status;
    eventfd_write(stored_event_.get(), 1);
  }
}

int ledger_commit_queue::on_stored(sd_event_source* /*source*/, int fd, std::uint32_t /*events*/,
                                   void* userdata) noexcept {
  auto& self = *static_cast<ledger_commit_queue*>(userdata);
  eventfd_t count = 0;
  eventfd_read(fd, &count);
  {
    const std::lock_guard lock{self.mutex_};
    if (self.run_ == nullptr || self.to_store_ != nullptr) {
      return 0;
    }
  }
  self.finish();
  if (!self.queue_.empty()) {
    sd_event_source_set_enabled(self.on_next_.get(), SD_EVENT_ONESHOT);
  }
  return 0;
}

int ledger_commit_queue::on_next(sd_event_source* /*source*/, void* userdata) noexcept {
  static_cast<ledger_commit_queue*>(userdata)->begin_next();
  return 0;
}

// What is stored is applied, even when nobody waits for the answer any more.
void ledger_commit_queue::finish() noexcept {
  std::vector<ledger_refusal> refusals;
  int status = no_memory;
  try {
    status = engine_.finish_commit(std::move(run_), stored_, refusals);
  } catch (const std::bad_alloc&) {
    // Only the text of a refusal is lost.
  }
  run_ = nullptr;
  if (client_ != nullptr) {
    std::exchange(client_, nullptr)->commit_done(status, refusals);
  }
}

void ledger_commit_queue::close() noexcept {
  queue_.clear();
  client_ = nullptr;
  if (thread_.joinable()) {
    {
      const std::lock_guard lock{mutex_};
      closing_ = true;
      wake_.notify_one();
    }
    thread_.join();
  }
  run_ = nullptr;
}

}  // namespace ot
