// The event manager on sd-event. The loop's three steps map on two calls: evm_block prepares and
// waits, evm_dispatch runs the one handler that is due. Before the loop waits it runs the flush
// hooks, so that what a handler left to be done in one go has left the process by then.
#include "platform/event_manager.h"

#include <systemd/sd-event.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <new>

#include "platform/event_connections.h"
#include "platform/linux/loop/queue.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/linux/loop/turn_clock.h"
#include "platform/loop_turns.h"
#include "platform/status.h"

namespace ot {

struct evm_flush_hook {
  evm_flush_hook* next = nullptr;
  evm_flush_stage stage = evm_flush_stage::events;
  void (*flush)(void* argument) = nullptr;
  void* argument = nullptr;
};

struct evm_conn {
  evm* manager = nullptr;
  evm_conn* next = nullptr;
  evm_conn_open_func open = nullptr;
  void* context = nullptr;
  std::uint32_t id = evm_no_connection;  // while it is open
  std::uint32_t first_delay = 1;         // seconds
  std::uint32_t longest_delay = 30;
  std::uint32_t next_delay = 1;
  std::uint32_t event_mask = 0;
  evm_conn_event_func on_event = nullptr;
  sd_event_source* retry = nullptr;
};

struct evm {
  evm() = default;
  ~evm();
  evm(const evm&) = delete;
  evm& operator=(const evm&) = delete;

  sd_event* loop = nullptr;
  evm_flush_hook* flushes = nullptr;
  evm_conn* connections = nullptr;
  evm_queue queue;
  turn_clock turns;
};

evm::~evm() {
  while (evm_conn* connection = connections) {
    connections = connection->next;
    sd_event_source_disable_unref(connection->retry);
    delete connection;
  }
  while (evm_flush_hook* hook = flushes) {
    flushes = hook->next;
    delete hook;
  }
  sd_event_unref(loop);  // the queue's source keeps its own reference until the queue is gone
}

int evm_create(evm** ret) noexcept {
  std::unique_ptr<evm> manager(new (std::nothrow) evm);
  if (manager == nullptr) {
    return no_memory;
  }
  if (const int r = sd_event_new(&manager->loop); r < 0) {
    return -r;
  }
  if (const int status = manager->queue.open(manager->loop); status != status_ok) {
    return status;
  }
  *ret = manager.release();
  return status_ok;
}

void evm_destroy(evm* manager) noexcept {
  delete manager;
}

loop_turns evm_turns(const evm* manager) noexcept {
  return manager->turns.measured();
}

void evm_restart_turns(evm* manager) noexcept {
  manager->turns.restart();
}

int evm_block(evm* manager) noexcept {
  evm_flush(manager);
  manager->turns.end();
  if (sd_event_get_state(manager->loop) == SD_EVENT_PENDING) {
    return status_ok;
  }
  // Prepare answers "pending" when work waits already; a wait that ends without any starts over.
  int r = 0;
  while (r == 0) {
    r = sd_event_prepare(manager->loop);
    if (r == 0) {
      r = sd_event_wait(manager->loop, UINT64_MAX);
    }
  }
  return r < 0 ? -r : status_ok;
}

int evm_dispatch(evm* manager) {
  if (sd_event_get_state(manager->loop) != SD_EVENT_PENDING) {
    return EAGAIN;
  }
  manager->turns.begin();
  const int r = sd_event_dispatch(manager->loop);
  return r < 0 ? -r : status_ok;
}

sd_event* evm_sd_event(evm* manager) noexcept {
  return manager->loop;
}

int evm_start_timer(evm* manager, sd_event_source** timer, clockid_t clock, std::uint64_t usec,
                    sd_event_time_handler_t handler, void* context) noexcept {
  constexpr std::uint64_t accuracy_usec = 1;  // 0 would mean a quarter of a second
  if (*timer == nullptr) {
    return sd_event_add_time_relative(manager->loop, timer, clock, usec, accuracy_usec, handler,
                                      context);
  }
  const int r = sd_event_source_set_time_relative(*timer, usec);
  return r < 0 ? r : sd_event_source_set_enabled(*timer, SD_EVENT_ONESHOT);
}

bool evm_overlooked(sd_event_source* timer) noexcept {
  constexpr std::uint64_t late_us = 100'000;  // no turn takes that long by itself
  std::uint64_t due_us = 0;
  std::uint64_t now_us = 0;
  sd_event_source_get_time(timer, &due_us);
  sd_event_now(sd_event_source_get_event(timer), CLOCK_MONOTONIC, &now_us);
  return now_us >= due_us + late_us;
}

void evm_flush(evm* manager) noexcept {
  for (const evm_flush_hook* hook = manager->flushes; hook != nullptr; hook = hook->next) {
    hook->flush(hook->argument);
  }
}

int evm_add_flush(evm* manager, evm_flush_stage stage, void (*flush)(void* argument),
                  void* argument) noexcept {
  evm_flush_hook** place = &manager->flushes;
  while (*place != nullptr && (*place)->stage <= stage) {
    place = &(*place)->next;
  }
  auto* added = new (std::nothrow) evm_flush_hook{*place, stage, flush, argument};
  if (added == nullptr) {
    return no_memory;
  }
  *place = added;
  return status_ok;
}

int evm_post(evm* manager, evm_task task, void* argument) noexcept {
  return manager->queue.post(task, argument);
}

int evm_async_attach(evm* manager, int code, evm_async_handler handler, void* argument) noexcept {
  return manager->queue.attach(code, handler, argument) ? code : -1;
}

int evm_init_sigevent(evm* manager, int code, std::uint32_t, std::uint32_t,
                      evm_sigevent* ret) noexcept {
  if (!manager->queue.attached(code)) {
    return invalid_argument;
  }
  *ret = {manager, code};
  return status_ok;
}

void evm_raise(const evm_sigevent& event) noexcept {
  event.manager->queue.raise(event.code);
}

void evm_run_or_raise(const evm_sigevent& event) {
  event.manager->queue.run_or_raise(event.code);
}

// --- Event connections ---------------------------------------------------------------------------

// A retry always comes from the loop, never from inside the call that reported the end, so client
// libraries may report it from wherever they notice it.
namespace {

constexpr std::uint64_t usec_per_second = 1'000'000;

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
  const int r = evm_start_timer(connection.manager, &connection.retry, CLOCK_MONOTONIC, delay,
                                on_retry, &connection);
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
