// Event connections: opened by their owner's routine and opened again, with growing delays, while
// that fails and after they have ended.
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "platform/common/timer_driver.h"
#include "platform/event_connections.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/loops.h"
#include "platform/memory/world.h"
#include "platform/status.h"

namespace ot {

struct evm_conn {
  evm* manager;
  evm_conn_open_func open;
  void* context;
  std::uint32_t first_delay = 1;  // seconds, as is the next
  std::uint32_t longest_delay = 30;
  std::uint32_t next_delay = 1;
  std::uint32_t mask = 0;
  evm_conn_event_func handler = nullptr;
  std::uint32_t id = evm_no_connection;
  std::unique_ptr<virtual_alarm> retry;
};

namespace {

struct connections_part {
  std::vector<std::unique_ptr<evm_conn>> all;
};

// A retry may be queued when its manager goes.
bool exists(const evm_conn* connection) {
  const auto& all = world_part<connections_part>().all;
  return std::any_of(all.begin(), all.end(), [&](const auto& c) { return c.get() == connection; });
}

void retry_later(evm_conn& connection) {
  connection.retry->set(timer_now_ns() + connection.next_delay * std::uint64_t{1'000'000'000});
  connection.next_delay =
      std::min(std::max(connection.next_delay, 1U) * 2, connection.longest_delay);
}

bool try_open(evm_conn& connection) {
  connection.retry->set(0);
  {
    alloc_faults_resumed resume;
    connection.id = connection.open(connection.context);
  }
  if (connection.id == evm_no_connection) {
    retry_later(connection);
    return false;
  }
  connection.next_delay = connection.first_delay;
  return true;
}

}  // namespace

int evm_conn_create(evm* manager, evm_conn_open_func open, void* context, std::uint32_t kind,
                    evm_conn** ret) noexcept {
  alloc_faults_paused pause;
  note_introduction("evm_conn_create", {std::to_string(kind)});
  if (const int code = take_failure_code("evm_conn_create")) {
    return code;
  }
  if (manager == nullptr || open == nullptr) {
    return invalid_argument;
  }
  auto connection = std::make_unique<evm_conn>(
      evm_conn{.manager = manager, .open = open, .context = context, .retry = nullptr});
  evm_conn* const raw = connection.get();
  raw->retry = std::make_unique<virtual_alarm>([raw] {
    loop_post(raw->manager, [raw] {
      if (exists(raw) && raw->id == evm_no_connection) {  // else its owner opened it meanwhile
        try_open(*raw);
      }
    });
  });
  world_part<connections_part>().all.push_back(std::move(connection));
  *ret = raw;
  return status_ok;
}

int evm_conn_setretry(evm_conn* connection, std::uint32_t first, std::uint32_t longest) noexcept {
  if (const int code = take_failure_code("evm_conn_setretry")) {
    return code;
  }
  alloc_faults_paused pause;
  note_introduction("evm_conn_setretry", {std::to_string(first), std::to_string(longest)});
  connection->first_delay = first;
  connection->next_delay = first;
  connection->longest_delay = std::max(first, longest);
  return status_ok;
}

int evm_conn_notify(evm_conn* connection, std::uint32_t mask,
                    evm_conn_event_func handler) noexcept {
  if (const int code = take_failure_code("evm_conn_notify")) {
    return code;
  }
  alloc_faults_paused pause;
  note_introduction("evm_conn_notify", {std::to_string(mask)});
  connection->mask = mask;
  connection->handler = handler;
  return status_ok;
}

int evm_conn_open(evm_conn* connection) noexcept {
  alloc_faults_paused pause;
  if (const int code = take_failure_code("evm_conn_open")) {
    return code;
  }
  return try_open(*connection) ? status_ok : open_in_progress;
}

void evm_conn_ended(evm* manager, std::uint32_t connection_id, std::uint32_t event) noexcept {
  alloc_faults_paused pause;
  for (const auto& connection : world_part<connections_part>().all) {
    if (connection->manager != manager || connection->id != connection_id ||
        connection_id == evm_no_connection) {
      continue;
    }
    evm_conn& ended = *connection;
    ended.id = evm_no_connection;
    if (ended.handler != nullptr && (ended.mask & event) != 0) {
      alloc_faults_resumed resume;
      ended.handler(&ended, event);
    }
    if (ended.id == evm_no_connection) {  // else the handler opened it again
      retry_later(ended);
    }
    return;
  }
}

void connections_end(evm* manager) noexcept {
  std::erase_if(world_part<connections_part>().all,
                [manager](const auto& connection) { return connection->manager == manager; });
}

}  // namespace ot
