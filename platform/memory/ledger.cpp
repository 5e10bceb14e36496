// The in-memory ledger: the engine over maps, called directly. Its own allocations are never what
// a test's allocation fault is aimed at; those of the service's callbacks are.
#include "platform/memory/ledger_controls.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/ledger/calls/call.h"
#include "platform/ledger/engine/backlog.h"
#include "platform/ledger/engine/engine.h"
#include "platform/ledger/item.h"
#include "platform/ledger_status.h"
#include "platform/ledger_subscriber.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/ledger_map_store.h"
#include "platform/memory/world.h"
#include "platform/process.h"

namespace ot {

struct ledger_subscription {
  std::string path;
  ledger_backlog backlog;
};

namespace {

// What the engine sees of its platform: logs and notifications are collected, and the service's
// callbacks run with allocation faults in force.
class memory_environment : public ledger_environment {
 public:
  void log(const std::string& line) override { lines.push_back(line); }
  int notify(std::string_view base, std::span<const ledger_dpv_notification> entries) override;
  void in_service(void (*body)(void*), void* argument) override;

  std::vector<std::string> lines;
  std::vector<std::vector<ledger_sent_notification>> batches;
  std::vector<ledger_subscription*> followers;
};

// The engine with the failures that a test asked for in front of it.
class memory_backend : public ledger_backend {
 public:
  explicit memory_backend(ledger_engine& engine) noexcept : engine_(engine) {}

  int bind(std::string_view path) override {
    const int failure = take_failure(ledger_operation::bind);
    return failure != status_ok ? failure : engine_.bind(path);
  }
  int get(std::string_view path, ledger_value& ret) override {
    const int failure = take_failure(ledger_operation::get);
    return failure != status_ok ? failure : engine_.get(path, ret);
  }
  int set(std::string_view path, ledger_kind kind, std::span<const std::byte> value) override {
    const int failure = take_failure(ledger_operation::set);
    return failure != status_ok ? failure : engine_.set(path, kind, value);
  }
  int erase(std::string_view path) override {
    const int failure = take_failure(ledger_operation::erase);
    return failure != status_ok ? failure : engine_.erase(path);
  }
  int page(std::string_view prefix, std::string_view after, std::vector<ledger_stored>& ret,
           bool& ret_more) override {
    const int failure = take_failure(ledger_operation::walk);
    return failure != status_ok ? failure : engine_.page(prefix, after, ret, ret_more);
  }
  int commit(std::span<const ledger_proposal> changes, std::uint64_t generation,
             std::vector<ledger_refusal>& ret) override {
    const int failure = take_failure(ledger_operation::commit);
    return failure != status_ok ? failure : engine_.commit(changes, generation, ret);
  }
  int list(const ledger_list_query& query, ledger_page& ret) override {
    const int failure = take_failure(ledger_operation::list);
    return failure != status_ok ? failure : engine_.list(query, ret);
  }
  int register_switch(std::string_view path, std::atomic<std::uint32_t>& word) override {
    const int failure = take_failure_code("dbg_register");
    return failure != status_ok ? failure : engine_.register_switch(path, word);
  }
  std::uint64_t generation() override { return engine_.generation(); }

  void fail_next(ledger_operation operation, int code, unsigned let_through) noexcept {
    failures_[static_cast<std::size_t>(operation)] = {code, let_through};
  }
  // The failure asked for, once; else 0.
  int take_failure(ledger_operation operation) noexcept {
    ordered_failure& failure = failures_[static_cast<std::size_t>(operation)];
    if (failure.let_through > 0) {
      --failure.let_through;
      return status_ok;
    }
    return std::exchange(failure.code, status_ok);
  }

 private:
  struct ordered_failure {
    int code = status_ok;
    unsigned let_through = 0;
  };

  ledger_engine& engine_;
  std::array<ordered_failure, 8> failures_{};
};

struct memory_ledger {
  ledger_map_store configuration;
  ledger_map_store operational;
  memory_environment environment;
  std::unique_ptr<ledger_engine> engine;
  std::unique_ptr<memory_backend> backend;
  bool library_readable = true;

  memory_ledger() { restart(); }
  void restart() {
    engine = std::make_unique<ledger_engine>(configuration, operational, environment);
    backend = std::make_unique<memory_backend>(*engine);
    environment.batches.clear();
  }
};

// The process's ledger, made at its first use.
memory_ledger& the_ledger() {
  static memory_ledger instance;
  return instance;
}

int memory_environment::notify(std::string_view base,
                               std::span<const ledger_dpv_notification> entries) {
  const int failure = the_ledger().backend->take_failure(ledger_operation::notify);
  if (failure != status_ok) {
    return failure;
  }
  std::vector<ledger_sent_notification> batch;
  for (const ledger_dpv_notification& entry : entries) {
    const std::uint32_t* value =
        entry.kind == ledger_notification_delete ? entry.old_value : entry.new_value;
    batch.push_back({std::string{base} + entry.path, entry.kind, value == nullptr ? 0 : *value,
                     entry.sequence, entry});
  }
  batches.push_back(std::move(batch));
  ledger_notice_batch notices{base, entries};
  for (ledger_subscription* follower : followers) {
    follower->backlog.push(notices.below(follower->path));
  }
  return status_ok;
}

void memory_environment::in_service(void (*body)(void*), void* argument) {
  const alloc_faults_resumed faults;
  body(argument);
}

ledger_map_store& store_of(std::string_view path) {
  memory_ledger& memory = the_ledger();
  return path.starts_with("/cfg/") ? memory.configuration : memory.operational;
}

}  // namespace

int ledger_enter(int (*body)(ledger_backend& backend, void* argument), void* argument) {
  const alloc_faults_paused pause;
  return body(*the_ledger().backend, argument);
}

int ledger_enter_host(int (*body)(ledger_engine& engine, void* argument), void* argument) {
  const alloc_faults_paused pause;
  return body(*the_ledger().engine, argument);
}

bool ledger_library_readable() noexcept {
  return the_ledger().library_readable;
}

// --- Subscribers: the notices of a batch are there when it was sent, so waiting never waits ------

int ledger_subscribe(const char* path, ledger_subscription** ret) noexcept {
  const alloc_faults_paused pause;
  if (path == nullptr || !ledger_base_path_valid(path)) {
    return ledger_unknown_path;
  }
  auto* subscription = new ledger_subscription{path, {}};
  the_ledger().environment.followers.push_back(subscription);
  *ret = subscription;
  return status_ok;
}

int ledger_subscription_wait(ledger_subscription* subscription, int /*timeout_ms*/,
                             const std::function<void(const ledger_notice&)>& on_notice) {
  while (!subscription->backlog.empty()) {
    for (const ledger_notice& notice : subscription->backlog.pop()) {
      on_notice(notice);
    }
  }
  return status_ok;
}

void ledger_unsubscribe(ledger_subscription* subscription) noexcept {
  std::erase(the_ledger().environment.followers, subscription);
  delete subscription;
}

// --- The test's controls -----------------------------------------------------------------------

void ledger_control_reset() {
  const alloc_faults_paused pause;
  memory_ledger& memory = the_ledger();
  memory.configuration = {};
  memory.operational = {};
  memory.environment.lines.clear();
  memory.library_readable = true;
  memory.restart();
}

void ledger_control_restart() {
  const alloc_faults_paused pause;
  the_ledger().restart();
}

void ledger_control_fail_next(ledger_operation operation, int code, unsigned let_through) noexcept {
  the_ledger().backend->fail_next(operation, code, let_through);
}

void ledger_control_library(bool readable) noexcept {
  the_ledger().library_readable = readable;
}

void ledger_control_capacity(std::size_t items) noexcept {
  the_ledger().configuration.set_capacity(items);
}

void ledger_control_fail_next_store(int code) noexcept {
  the_ledger().configuration.fail_next_write(code);
}

int ledger_control_peek(std::string_view path, ledger_value& ret) {
  const alloc_faults_paused pause;
  return store_of(path).get(path, ret);
}

void ledger_control_put(std::string_view path, ledger_kind kind, std::span<const std::byte> value) {
  const alloc_faults_paused pause;
  const ledger_write write{.path = path, .kind = kind, .value = value};
  store_of(path).write({&write, 1});
}

std::vector<std::vector<ledger_sent_notification>> ledger_control_take_notifications() {
  const alloc_faults_paused pause;
  return std::exchange(the_ledger().environment.batches, {});
}

std::vector<std::string> ledger_control_take_log() {
  const alloc_faults_paused pause;
  return std::exchange(the_ledger().environment.lines, {});
}

}  // namespace ot
