// Routes: one client of the kernel's routing tables, with what it registered, what was last
// reported of each prefix, and the sockets. All on the main thread.
//
// A look-up (lookup.h) asks the kernel as if there were a packet to send, about a microsecond, and
// takes the answer only from the wanted table; where an address of the router's own or a policy
// rule hides that table, it is read and matched here.
//
// Why prefixes are looked up again. The kernel announces most changes of routes, but not the end of
// an IPv4 route whose interface goes down, loses its address or its carrier, leaves its VRF, or
// whose next-hop object changes. So a notification is never taken from the event: every event that
// may have an effect has the registered prefixes (watched_prefixes.h) looked up, and only a result
// that differs from the last one is reported.
//
// What triggers a look:
//   - a route was added or removed: the prefixes that it concerns, most often none;
//   - a link or an address changed: the prefixes whose last answer came by that link, after the
//     kernel has completed that change (change_waiter.h), for which the loop does not wait; the
//     others, which most often it does not concern, after a pause;
//   - a rule or next hop changed, or very many routes or links did: all prefixes, likewise;
//   - events within a pause after a look: at once only the prefixes that contain a changed route,
//     unless whole tables have to be read for it; the rest when the pause is over; the pause grows
//     with what the look took;
//   - a burst is over: all prefixes once more;
//   - a look-up failed, for want of memory: all prefixes a moment later;
//   - every 30 s the audit: all prefixes, for what no event announces.
// Messages about routes that concern no prefix do not reach us (message_filter.h).
//
// The way of a change: kernel -> events_ -> changes_ -> watched_prefixes ->
// look-up -> the client's `changed` with the registered prefix, whose own look-up gets the same
// answer. When events were lost, nobody knows which: the client is disconnected, connected again,
// and registers anew.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>

#include "platform/common/watched_prefixes.h"
#include "platform/fib_client.h"
#include "platform/linux/netlink/watch.h"
#include "platform/linux/routes/change_waiter.h"
#include "platform/linux/routes/changes.h"
#include "platform/linux/routes/lookup.h"

namespace ot {

class fib_session {
 public:
  fib_session(evm* manager, const rtclient_callbacks& callbacks) noexcept;
  ~fib_session();
  fib_session(const fib_session&) = delete;
  fib_session& operator=(const fib_session&) = delete;

  // Connects in the background. 0 or a status code.
  int start() noexcept;

  // For the client: what the notification says that it is being given, else as of now. 0 or a
  // status code.
  int find(std::uint32_t address, std::uint32_t table_id, rtclient_result** ret) noexcept;
  // 0, fib_already_registered, 12.
  int add(const fib_prefix& prefix) noexcept;
  // 0 or 2.
  int remove(const fib_prefix& prefix) noexcept { return prefixes_.remove(prefix); }

 private:
  static int on_registered(sd_event_source* source, std::uint64_t usec, void* self);
  static int on_settled(sd_event_source* source, std::uint64_t usec, void* self);
  static int on_audit(sd_event_source* source, std::uint64_t usec, void* self);
  static int on_connect(sd_event_source* source, std::uint64_t usec, void* self);
  static void on_event(void* self, const nlmsghdr& message);

  int arm(sd_event_source** timer, std::uint64_t after, sd_event_time_handler_t handler) noexcept;
  void note_route(const route_record& route);
  void take_events();
  int connect() noexcept;
  void disconnect();
  void schedule_audit() noexcept;
  void filter_messages() noexcept;
  void stop_filtering() noexcept;
  static void note_change(const nlmsghdr& message, route_changes& ret);
  void await_and_look(bool all);
  void look_and_pause();
  bool look_again(bool all);
  void look_inside_burst();
  void report();

  evm* manager_;
  rtclient_callbacks callbacks_;
  netlink_watch events_;
  route_lookup lookup_;
  sd_event_source* registered_ = nullptr;
  sd_event_source* settled_ = nullptr;  // a pause, or a burst, is over
  sd_event_source* audit_ = nullptr;
  sd_event_source* reconnect_ = nullptr;
  watched_prefixes prefixes_;
  route_changes changes_;  // since all prefixes were looked at
  change_waiter waiter_;
  bool filtering_ = false;       // messages, by what was registered when that began
  bool waiting_ = false;         // for a change to be whole; a look follows
  bool all_ = false;             // of all prefixes
  bool more_changed_ = false;    // meanwhile, by a change that may not be whole then
  bool pausing_ = false;         // a look was a moment ago
  bool rest_due_ = false;        // without a pause, what a link left for later will be looked at
  std::uint64_t pause_ = 0;      // after the last look at all prefixes, microseconds
  bool reading_tables_ = false;  // it had to read whole tables, which takes long
};

}  // namespace ot
