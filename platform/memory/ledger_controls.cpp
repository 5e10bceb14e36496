// The controls of the in-memory ledger.
#include "platform/memory/ledger_controls.h"

#include <utility>

#include "platform/memory/alloc_faults.h"
#include "platform/memory/ledger_state.h"
#include "platform/status.h"

namespace ot {
namespace {

ledger_map_store& store_of(std::string_view path) {
  ledger_memory& memory = ledger_memory_instance();
  return path.starts_with("/cfg/") ? memory.configuration : memory.operational;
}

}  // namespace

void ledger_control_reset() {
  const alloc_faults_paused pause;
  ledger_memory& memory = ledger_memory_instance();
  memory.configuration = {};
  memory.operational = {};
  memory.environment.lines.clear();
  memory.library_readable = true;
  memory.restart();
}

void ledger_control_restart() {
  const alloc_faults_paused pause;
  ledger_memory_instance().restart();
}

void ledger_control_fail_next(ledger_operation operation, int code) noexcept {
  ledger_memory_instance().backend->fail_next(operation, code);
}

void ledger_control_library(bool readable) noexcept {
  ledger_memory_instance().library_readable = readable;
}

void ledger_control_capacity(std::size_t items) noexcept {
  ledger_memory_instance().configuration.set_capacity(items);
}

void ledger_control_fail_next_store(int code) noexcept {
  ledger_memory_instance().configuration.fail_next_write(code);
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
  return std::exchange(ledger_memory_instance().environment.batches, {});
}

std::vector<std::string> ledger_control_take_log() {
  const alloc_faults_paused pause;
  return std::exchange(ledger_memory_instance().environment.lines, {});
}

}  // namespace ot
