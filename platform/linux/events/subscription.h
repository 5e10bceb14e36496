// One subscriber's connection: its subscription, and what it has still to get. The server
// (server.h) owns it.
#pragma once

#include <systemd/sd-event.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "platform/evm.h"
#include "platform/linux/events/protocol.h"
#include "platform/linux/unique_fd.h"

namespace ot {

class event_server;

class event_subscription {
 public:
  // `arrival` counts connections.
  event_subscription(event_server& server, unsigned number, std::uint64_t arrival,
                     unique_fd connection) noexcept
      : server_(server), number_(number), arrival_(arrival), connection_(std::move(connection)) {}
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
  // The same for a burst of events that all have in common, of which the first is number `begin`:
  // those that this one has not got yet.
  [[nodiscard]] bool send_burst(std::span<const event_packet_record> burst,
                                std::uint64_t begin) noexcept;
  // The first event of all to be sent to it.
  void begin_with(std::uint64_t number) noexcept { next_ = number; }

  [[nodiscard]] std::uint64_t arrival() const noexcept { return arrival_; }
  [[nodiscard]] bool subscribed() const noexcept { return subscribed_; }
  // Events that wait to be sent.
  [[nodiscard]] std::size_t backlog() const noexcept { return noted_.size(); }

 private:
  static int on_io(sd_event_source* source, int fd, std::uint32_t events, void* subscription);
  static int on_silence(sd_event_source* source, std::uint64_t usec, void* subscription);

  bool read_subscription() noexcept;
  // How many of the events the connection took; negative when it is broken.
  std::ptrdiff_t send_some(std::span<const event_packet_record> events) noexcept;

  event_server& server_;
  unsigned number_;
  std::uint64_t arrival_;
  unique_fd connection_;
  sd_event_source* io_ = nullptr;
  sd_event_source* silence_ = nullptr;
  bool subscribed_ = false;
  std::vector<event_packet_record> noted_;
  std::uint64_t next_ = 0;  // of the common burst, by number
};

}  // namespace ot
