// The publisher's calls over its socket. One publisher a process.
#include "platform/event_publisher.h"

#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "platform/linux/events/server.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/messages.h"
#include "platform/status.h"

namespace ot {

struct evdl_publisher {
  event_server server;
};

namespace {

std::unique_ptr<evdl_publisher> only_publisher;

constexpr errmsg_record events_log{"OT", "SERVICES", "EVENTS", "%s", 3, 3, {0, 0, 0}, nullptr};

// The service goes on without its events when their socket cannot be made; the log says why.
int open_server(event_server& server) noexcept {
  try {
    std::string error;
    const int status = server.open(error);
    if (status != status_ok) {
      errmsg_log(&events_log, events_log.severity, ("events are not published: " + error).c_str());
    }
    return status;
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
}

constexpr std::uint64_t flush_us = 5'000;

void flush_events(void* /*argument*/) {
  if (only_publisher != nullptr) {
    only_publisher->server.flush(flush_us);
  }
}

}  // namespace

int evdl_publisher_register(evm* manager, const evdl_registration& registration,
                            evdl_publisher** ret, std::uint32_t /*version*/) noexcept {
  const evdl_event_kind& kind = registration.kind;
  if (manager == nullptr || registration.kind_count != 1 || kind.match == nullptr ||
      kind.copy_subscriptions == nullptr) {
    return invalid_argument;
  }
  event_publisher_close();
  std::unique_ptr<evdl_publisher> added(new (std::nothrow) evdl_publisher{{manager, kind}});
  if (added == nullptr) {
    return no_memory;
  }
  int status = open_server(added->server);
  if (status == status_ok) {
    status = evm_add_flush(manager, evm_flush_stage::events, flush_events, nullptr);
  }
  if (status == status_ok) {
    only_publisher = std::move(added);
    *ret = only_publisher.get();
  }
  return status;
}

int evdl_event_publish(evdl_publisher* publisher, std::uint32_t type, std::uint32_t count,
                       std::size_t source_size, const void* source, std::size_t published_size,
                       const void* published) noexcept {
  if (publisher == nullptr || type != publisher->server.kind().type ||
      source_size != sizeof(evdl_track_record) || published_size != sizeof(event_packet_record)) {
    return invalid_argument;
  }
  for (std::uint32_t i = 0; i < count; ++i) {
    evdl_track_record event;
    event_packet_record record;
    std::memcpy(&event, static_cast<const std::byte*>(source) + i * sizeof event, sizeof event);
    std::memcpy(&record, static_cast<const std::byte*>(published) + i * sizeof record,
                sizeof record);
    publisher->server.publish(event, record);
  }
  return status_ok;
}

void event_publisher_close() noexcept {
  if (only_publisher != nullptr) {
    only_publisher->server.flush(UINT64_MAX);
  }
  only_publisher.reset();
}

}  // namespace ot
