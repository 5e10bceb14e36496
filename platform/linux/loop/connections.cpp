// Event connections: an open routine that the loop calls again, ever more slowly, until it opens,
// and anew when the connection ends. A retry always comes from the loop, never from inside the call
// that reported the end, so client libraries may report it from wherever they notice it.
#include <algorithm>
#include <cstdint>
#include <new>

#include "platform/linux/loop/impl.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr std::uint64_t usec_per_second = 1'000'000;

// Not 0: that would mean a quarter of a second to the loop.
constexpr std::uint64_t timer_accuracy_usec = 1;

int on_retry(sd_event_source* /*source*/, std::uint64_t /*usec*/, void* connection) {
  auto* closed = static_cast<evm_conn*>(connection);
  if (closed->id == evm_no_connection) {  // else its owner opened it meanwhile
    evm_conn_open(closed);
  }
  return 0;
}

// 0 or a status code.
int schedule_retry(evm_conn& connection) noexcept {
  const std::uint64_t delay = connection.next_delay * usec_per_second;
  connection.next_delay =
      std::min(std::max(connection.next_delay * 2, 1U), connection.longest_delay);
  int r = 0;
  if (connection.retry == nullptr) {
    r = sd_event_add_time_relative(connection.manager->loop, &connection.retry, CLOCK_MONOTONIC,
                                   delay, timer_accuracy_usec, on_retry, &connection);
  } else {
    r = sd_event_source_set_time_relative(connection.retry, delay);
    if (r >= 0) {
      r = sd_event_source_set_enabled(connection.retry, SD_EVENT_ONESHOT);
    }
  }
  return r < 0 ? -r : status_ok;
}

}  // namespace

int evm_conn_create(evm* manager, evm_conn_open_func open, void* context, std::uint32_t /*kind*/,
                    evm_conn** ret) noexcept {
  evm_conn* connection = new (std::nothrow) evm_conn;
  if (connection == nullptr) {
    return no_memory;
  }
  connection->manager = manager;
  connection->open = open;
  connection->context = context;
  connection->next = manager->connections;
  manager->connections = connection;
  *ret = connection;
  return status_ok;
}

int evm_conn_setretry(evm_conn* connection, std::uint32_t first, std::uint32_t longest) noexcept {
  connection->first_delay = first;
  connection->longest_delay = std::max(first, longest);
  connection->next_delay = first;
  return status_ok;
}

int evm_conn_notify(evm_conn* connection, std::uint32_t mask,
                    evm_conn_event_func handler) noexcept {
  connection->event_mask = mask;
  connection->on_event = handler;
  return status_ok;
}

int evm_conn_open(evm_conn* connection) noexcept {
  connection->id = connection->open(connection->context);
  if (connection->id == evm_no_connection) {
    const int status = schedule_retry(*connection);
    return status == status_ok ? open_in_progress : status;
  }
  connection->next_delay = connection->first_delay;
  return status_ok;
}

void evm_conn_ended(evm* manager, std::uint32_t connection_id, std::uint32_t event) noexcept {
  evm_conn* connection = manager->connections;
  while (connection != nullptr && connection->id != connection_id) {
    connection = connection->next;
  }
  if (connection == nullptr || connection_id == evm_no_connection) {
    return;
  }
  connection->id = evm_no_connection;
  if (connection->on_event != nullptr && (connection->event_mask & event) != 0) {
    connection->on_event(connection, event);
  }
  if (connection->id == evm_no_connection) {
    schedule_retry(*connection);
  }
}

}  // namespace ot
