// The in-memory ledger: the engine over maps, called directly. Its own allocations are never what
// a test's allocation fault is aimed at; those of the service's callbacks are.
#include "platform/memory/ledger_state.h"

#include <utility>

#include "platform/ledger/calls/call.h"
#include "platform/ledger/engine/host.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/world.h"
#include "platform/process.h"
#include "platform/status.h"

namespace ot {
namespace {

std::size_t index_of(ledger_operation operation) noexcept {
  return static_cast<std::size_t>(operation);
}

}  // namespace

void ledger_memory::restart() {
  engine = std::make_unique<ledger_engine>(configuration, operational, environment);
  backend = std::make_unique<ledger_memory_backend>(*engine);
  environment.batches.clear();
}

ledger_memory& ledger_memory_instance() {
  static ledger_memory instance;
  return instance;
}

int ledger_memory_environment::notify(std::string_view base,
                                      std::span<const ledger_dpv_notification> entries) {
  const int failure = ledger_memory_instance().backend->take_failure(ledger_operation::notify);
  if (failure != status_ok) {
    return failure;
  }
  std::vector<ledger_sent_notification> batch;
  for (const ledger_dpv_notification& entry : entries) {
    const std::uint32_t* value =
        entry.kind == ledger_notification_delete ? entry.old_value : entry.new_value;
    batch.push_back({.path = std::string{base} + entry.path,
                     .kind = entry.kind,
                     .value = value == nullptr ? 0 : *value,
                     .sequence = entry.sequence});
  }
  batches.push_back(std::move(batch));
  for (ledger_subscription* follower : followers) {
    follower->backlog.push(ledger_notices_below(follower->path, base, entries));
  }
  return status_ok;
}

void ledger_memory_environment::in_service(void (*body)(void*), void* argument) {
  const alloc_faults_resumed faults;
  body(argument);
}

void ledger_memory_backend::fail_next(ledger_operation operation, int code) noexcept {
  failures_[index_of(operation)] = code;
}

int ledger_memory_backend::take_failure(ledger_operation operation) noexcept {
  return std::exchange(failures_[index_of(operation)], status_ok);
}

int ledger_memory_backend::bind(std::string_view path) {
  const int failure = take_failure(ledger_operation::bind);
  return failure != status_ok ? failure : engine_.bind(path);
}

int ledger_memory_backend::get(std::string_view path, ledger_value& ret) {
  const int failure = take_failure(ledger_operation::get);
  return failure != status_ok ? failure : engine_.get(path, ret);
}

int ledger_memory_backend::set(std::string_view path, ledger_kind kind,
                               std::span<const std::byte> value) {
  const int failure = take_failure(ledger_operation::set);
  return failure != status_ok ? failure : engine_.set(path, kind, value);
}

int ledger_memory_backend::erase(std::string_view path) {
  const int failure = take_failure(ledger_operation::erase);
  return failure != status_ok ? failure : engine_.erase(path);
}

int ledger_memory_backend::page(std::string_view prefix, std::string_view after,
                                std::vector<ledger_stored>& ret, bool& ret_more) {
  const int failure = take_failure(ledger_operation::walk);
  return failure != status_ok ? failure : engine_.page(prefix, after, ret, ret_more);
}

int ledger_memory_backend::commit(std::span<const ledger_proposal> changes,
                                  std::vector<ledger_refusal>& ret) {
  const int failure = take_failure(ledger_operation::commit);
  return failure != status_ok ? failure : engine_.commit(changes, ret);
}

int ledger_memory_backend::list(const ledger_list_query& query, ledger_page& ret) {
  const int failure = take_failure(ledger_operation::list);
  return failure != status_ok ? failure : engine_.list(query, ret);
}

int ledger_memory_backend::register_switch(std::string_view path,
                                           std::atomic<std::uint32_t>& word) {
  const int failure = take_failure_code("dbg_register");
  return failure != status_ok ? failure : engine_.register_switch(path, word);
}

int ledger_enter(int (*body)(ledger_backend& backend, void* argument), void* argument) {
  const alloc_faults_paused pause;
  return body(*ledger_memory_instance().backend, argument);
}

int ledger_enter_host(int (*body)(ledger_engine& engine, void* argument), void* argument) {
  const alloc_faults_paused pause;
  return body(*ledger_memory_instance().engine, argument);
}

bool ledger_library_readable() noexcept {
  return ledger_memory_instance().library_readable;
}

}  // namespace ot
