// One subscriber's connection to the publisher: its subscription, and what it has still to get.
#pragma once

#include <systemd/sd-event.h>

#include <vector>

#include "platform/event_manager.h"
#include "platform/linux/events/protocol.h"
#include "platform/linux/unique_fd.h"

namespace ot {

class event_server;

class event_subscription {
 public:
  event_subscription(event_server& server, unsigned number, unique_fd connection) noexcept
      : server_(server), number_(number), connection_(std::move(connection)) {}
  ~event_subscription();
  event_subscription(const event_subscription&) = delete;
  event_subscription& operator=(const event_subscription&) = delete;

  // Waits, for a limited time, for what the subscriber wants. 0 or a status code.
  int open(evm* manager) noexcept;

  // Notes an event to be sent. False when too much waits already: the subscriber does not read.
  [[nodiscard]] bool note(const event_packet_record& record) noexcept;
  // Sends what the connection takes; the rest follows when it takes more. False when the
  // connection is broken.
  [[nodiscard]] bool send_noted() noexcept;

 private:
  static int on_io(sd_event_source* source, int fd, std::uint32_t events, void* subscription);
  static int on_silence(sd_event_source* source, std::uint64_t usec, void* subscription);

  bool read_subscription() noexcept;

  event_server& server_;
  unsigned number_;
  unique_fd connection_;
  sd_event_source* io_ = nullptr;
  sd_event_source* silence_ = nullptr;
  bool subscribed_ = false;
  std::vector<event_packet_record> noted_;
};

}  // namespace ot
