// The event manager on sd-event. The loop's three steps map on two calls: evm_block prepares and
// waits, evm_dispatch runs the one handler that is due. Before the loop waits it runs the flush
// hooks, so that what a handler left to be done in one go has left the process by then.
#include "platform/event_manager.h"

#include <cerrno>
#include <memory>
#include <new>

#include "platform/linux/loop/impl.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/status.h"

namespace ot {

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

int evm_block(evm* manager) noexcept {
  evm_flush(manager);
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
  const int r = sd_event_dispatch(manager->loop);
  return r < 0 ? -r : status_ok;
}

sd_event* evm_sd_event(evm* manager) noexcept {
  return manager->loop;
}

void evm_flush(evm* manager) noexcept {
  for (const evm_flush_hook* hook = manager->flushes; hook != nullptr; hook = hook->next) {
    hook->flush(hook->argument);
  }
}

int evm_add_flush(evm* manager, void (*flush)(void* argument), void* argument) noexcept {
  evm_flush_hook** end = &manager->flushes;
  while (*end != nullptr) {
    end = &(*end)->next;
  }
  *end = new (std::nothrow) evm_flush_hook{nullptr, flush, argument};
  return *end == nullptr ? no_memory : status_ok;
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

}  // namespace ot
