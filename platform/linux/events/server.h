// Events: the publisher's socket and its subscribers' connections. All on the main loop.
//
// The way of an event: evdl_event_publish (publisher.cpp) -> the filters say who wants it -> noted
// for each of those, and once for all who want everything -> the loop's flush sends each subscriber
// what was noted, many events a packet -> the subscriber's process (client/subscriber.cpp), as
// protocol.h lays it out. With a thousand subscribers that is more than one turn of the loop may
// take: the flush sends to as many as it can in a few milliseconds, and to the others in the next
// turns.
//
// A subscriber connects to a sequenced-packet socket in the run directory, sends its filters in one
// packet, gets one answer and from then on events. Without filters it gets all. The publisher owns
// the event kind (how a record matches a filter); the server owns connections and filters, and
// shows each subscriber's filters to the publisher (`copy_subscriptions`), which may refuse them.
//
// Nothing waits for a subscriber: who says nothing is closed after a while, who does not read is
// cut off when its backlog is full, and neither holds up the others. A subscriber that was cut off
// has to subscribe again; nothing is kept for it. All backlogs together are bounded too. When every
// place is taken, whoever has not subscribed yet gives way; some places are root's alone.
#pragma once

#include <systemd/sd-event.h>

#include <array>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/common/event_filters.h"
#include "platform/event_publisher.h"
#include "platform/evm.h"
#include "platform/linux/events/protocol.h"
#include "platform/linux/events/subscription.h"
#include "platform/linux/loop/listener.h"

namespace ot {

class event_server : public unix_listener_owner {
 public:
  event_server(evm* manager, const evdl_event_kind& kind) noexcept
      : manager_(manager), kind_(kind) {}
  ~event_server() override { sd_event_source_disable_unref(again_); }
  event_server(const event_server&) = delete;
  event_server& operator=(const event_server&) = delete;

  // Makes the socket and follows it. 0, or an errno value with a text for the operator.
  int open(std::string& ret_error);

  [[nodiscard]] const evdl_event_kind& kind() const noexcept { return kind_; }

  // Notes the event for everyone who wants it; it leaves with the next flush.
  void publish(const evdl_track_record& event, const event_packet_record& record) noexcept;
  // Sends what was noted, for about so long; the rest leaves in the next turns of the loop.
  void flush(std::uint64_t limit_us) noexcept;

  // For the connections: the subscriber `number` has sent its filters. 0 or the reason why not.
  int subscribe(unsigned number, std::span<const evdl_track_record> filters) noexcept;
  // For the connections: forgets subscriber `number`.
  void forget(unsigned number) noexcept;

  void client_connected(unique_fd socket, bool trusted) noexcept override;
  bool make_way(bool for_trusted) noexcept override;

 private:
  [[nodiscard]] unsigned free_number(bool trusted) const noexcept;
  int notify_publisher(std::span<const evdl_track_record> filters) noexcept;
  void add_to_burst(const event_packet_record& record) noexcept;
  void send_to(unsigned number) noexcept;
  void end_burst() noexcept;
  void bound_backlogs() noexcept;

  evm* manager_;
  evdl_event_kind kind_;
  unix_listener listener_{*this};
  event_filters filters_;
  std::array<std::unique_ptr<event_subscription>, event_subscriber_limit> subscribers_;
  std::uint64_t arrivals_ = 0;
  event_subscribers unsent_;                // who has events noted that no flush has come to yet
  event_subscribers all_;                   // who wants everything
  std::vector<event_packet_record> burst_;  // for them, as long as one of them is unsent
  std::uint64_t burst_begin_ = 0;           // the number of its first event
  sd_event_source* again_ = nullptr;        // a flush did not come to everyone
};

// Closes the publisher's socket and its subscribers' connections, if there is one; nothing may be
// published afterwards.
void event_publisher_close() noexcept;

}  // namespace ot
