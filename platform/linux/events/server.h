// The publisher's socket and its subscribers' connections.
#pragma once

#include <systemd/sd-event.h>

#include <array>
#include <memory>
#include <span>
#include <string>

#include "platform/common/event_filters.h"
#include "platform/event_publisher.h"
#include "platform/linux/events/protocol.h"
#include "platform/linux/events/subscription.h"

namespace ot {

class event_server {
 public:
  event_server(evm* manager, const evdl_event_kind& kind) noexcept
      : manager_(manager), kind_(kind) {}
  ~event_server();
  event_server(const event_server&) = delete;
  event_server& operator=(const event_server&) = delete;

  // Makes the socket and follows it. 0 or a status code.
  int open() noexcept;

  [[nodiscard]] const evdl_event_kind& kind() const noexcept { return kind_; }

  // Notes the event for everyone who wants it; it leaves with the next flush.
  void publish(const evdl_track_record& event, const event_packet_record& record) noexcept;
  void flush() noexcept;

  // For the connections: the subscriber `number` has sent its filters. 0 or the reason why not.
  int subscribe(unsigned number, std::span<const evdl_track_record> filters) noexcept;
  // For the connections: forgets subscriber `number`.
  void forget(unsigned number) noexcept;

 private:
  static int on_connect(sd_event_source* source, int fd, std::uint32_t events, void* server);
  int listen_at(const std::string& path) noexcept;
  int tell_publisher(std::span<const evdl_track_record> filters) noexcept;

  evm* manager_;
  evdl_event_kind kind_;
  unique_fd listener_;
  sd_event_source* source_ = nullptr;
  event_filters filters_;
  std::array<std::unique_ptr<event_subscription>, event_subscriber_limit> subscribers_;
  event_subscribers unsent_ = 0;  // who has events noted since the last flush
};

}  // namespace ot
