// The commits of the socket's clients, one after the other. To make a configuration durable takes
// as long as the disk likes: a thread of its own does it, and the loop goes on. Only the commits
// behind it wait. What is stored is applied on the loop, and then answered.
#pragma once

#include <systemd/sd-event.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <span>
#include <thread>
#include <vector>

#include "platform/ledger/engine/engine.h"
#include "platform/linux/loop/event_source.h"
#include "platform/linux/unique_fd.h"

namespace ot {

struct ledger_commit_request {
  std::vector<ledger_proposal> changes;
  std::uint64_t generation = 0;  // of what they were worked out from; 0: of anything
};

class ledger_commit_client {
 public:
  virtual ~ledger_commit_client() = default;
  // The commit is over: 0 or the first refusal's code, and all refusals.
  virtual void commit_done(int status, std::span<const ledger_refusal> refusals) noexcept = 0;
};

// Loop's thread.
class ledger_commit_queue {
 public:
  explicit ledger_commit_queue(ledger_engine& engine) noexcept : engine_(engine) {}
  ~ledger_commit_queue();
  ledger_commit_queue(const ledger_commit_queue&) = delete;
  ledger_commit_queue& operator=(const ledger_commit_queue&) = delete;

  // 0 or an errno value.
  int open(sd_event* loop) noexcept;

  // Queues a commit; a client has one at a time. Its end may be told within this call. May throw
  // bad_alloc, and then nothing is queued.
  void submit(ledger_commit_client& client, ledger_commit_request request);
  // The client is gone. Its commit is not begun, or, when it is already under way, ends untold.
  void forget(const ledger_commit_client& client) noexcept;

  // Waits for what is being stored, and begins no other.
  void close() noexcept;

 private:
  struct waiting {
    ledger_commit_client* client;
    ledger_commit_request request;
  };

  static int on_stored(sd_event_source* source, int fd, std::uint32_t events,
                       void* userdata) noexcept;
  static int on_next(sd_event_source* source, void* userdata) noexcept;

  void begin_next() noexcept;
  void begin(waiting& next);
  void finish() noexcept;
  bool start_thread() noexcept;
  void store_in_turn() noexcept;

  ledger_engine& engine_;
  std::deque<waiting> queue_;
  ledger_commit_client* client_ = nullptr;  // whose commit is under way
  std::unique_ptr<ledger_commit_run> run_;  // the commit under way
  unique_fd stored_event_;
  event_source on_stored_;
  event_source on_next_;
  std::thread thread_;

  std::mutex mutex_;  // of what follows
  std::condition_variable wake_;
  ledger_commit_run* to_store_ = nullptr;
  int stored_ = 0;  // what store() returned
  bool closing_ = false;
};

}  // namespace ot
