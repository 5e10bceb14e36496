// The router in memory, and how a test plays on it. The files of this folder implement platform/*.h
// without a kernel, files or clocks: what the service asks for is answered from a world that the
// test makes. Here are its controls in the field's words: a link goes down, an interface is
// renamed, time passes, a call fails. Those of the ledger and of BFD are in ledger_controls.h and
// bfd_controls.h, failing allocations in alloc_faults.h.
//
// Each service keeps its state as one part of the world (world.h), made when first asked for and
// thrown away by reset(); only the ledger has a reset of its own. A change goes the way it goes on
// a router: the control changes the part, the part posts a notification to the loops of its clients
// (loops.h), and the client's callback runs there as one handler, so it is seen after run_pending()
// or advance(). Time is virtual and stands still but for these two.
//
// Only the thread that called reset() last may call the controls; its loops are run by them.
// Threads that the service starts are real: their loops wait for real, and run_pending() waits
// until they are idle. What such a thread calls (BFD, the loops, messages) has a lock of its own.
// The platform's own allocations never fail; those of the service's code that it calls back do.
//
// Nothing here waits for time to pass, reads a clock or opens a file.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace ot {

struct evm;

// Thrown in place of the end of the process.
struct process_exited {
  int status = 0;
};

namespace field {

// A router as it comes up: no interfaces, no subscribers, nothing stored, 100 s after boot. Event
// managers of before may still be destroyed, not used.
void reset();

// --- Failures ------------------------------------------------------------------------------------

// The next call of the platform operation of this name fails with `code`. For look-ups and
// registrations of one item: a code of 0 with an `item_status` lets only the item fail. With
// `let_through`, that many calls go well before.
void fail_next(std::string_view operation, int code, int item_status = 0, unsigned let_through = 0);

// The operations whose ordered failures have not happened.
std::vector<std::string> failures_left();

// --- Time ----------------------------------------------------------------------------------------

// Runs everything that is due now, one handler after the other, until nothing is left. Also waits
// until the loops of other threads are idle.
void run_pending();

// Lets time pass: everything due on the way runs at its own instant, in order.
void advance(std::chrono::nanoseconds time);
// The same up to the next instant at which something is due. False when nothing is.
bool advance_to_next();

// Sets the wall clock; it goes on with the virtual time. 1,700,000,000 after reset.
void set_wall_clock(std::int64_t seconds);

// How often handlers have run since reset.
std::uint64_t handlers_run();

// A turn of this loop has just taken that long; by themselves they take no time here.
void turn_took(evm* manager, std::chrono::microseconds time);

// Ends the wait of the thread that runs this loop: its evm_block fails from now on.
void end_loop(evm* manager);

// Waits until `condition()` holds; it is looked at whenever something changed in another thread.
void await(const std::function<bool()>& condition);

// The names that threads have taken, in order; empty where one gave its name back at its end.
std::vector<std::string> thread_names_set();
std::size_t threads_ended();

// --- Interfaces ----------------------------------------------------------------------------------

// A new interface, administratively up; its handle.
std::uint32_t interface_added(std::string_view name, bool link_up = true);
void interface_removed(std::string_view name);
void interface_renamed(std::string_view from, std::string_view to);
void link_down(std::string_view name);
void link_up(std::string_view name);
void admin_down(std::string_view name);
void admin_up(std::string_view name);
// The interface becomes the standby or the active member of a redundant pair.
void standby(std::string_view name);
void active(std::string_view name);

// The interface manager's process ends (bindings are lost, calls fail) and starts again.
void interface_manager_gone();
void interface_manager_back();

// --- Routes and VRFs -----------------------------------------------------------------------------

inline constexpr std::uint32_t main_table = 254;

// Addresses as dotted text. Adding a route that is there replaces it.
void route_added(const char* address, std::uint32_t length, std::string_view first_hop,
                 std::uint32_t table = main_table);
void route_removed(const char* address, std::uint32_t length, std::uint32_t table = main_table);
// An address of the router's own, which is looked up beside the routes of its VRF's table.
void own_address_added(const char* address, std::uint32_t table = main_table);
void own_address_removed(const char* address, std::uint32_t table = main_table);

// While events are held, the FIB's clients look at nothing but when the events are read: at what
// has changed since, as it is then. Notifications follow in the loop as ever.
void fib_events_held(bool held);
void fib_events_read();

// The FIB's connection is lost, with what was registered over it, and comes back.
void fib_gone();
void fib_back();
std::size_t fib_registrations();

// A VRF is created, or gets another id or table; it goes, with and without notifying anybody.
void vrf_added(std::string_view name, std::uint32_t id, std::uint32_t table);
void vrf_removed(std::string_view name);
void vrf_removed_silently(std::string_view name);

// The VRF service ends and starts again.
void vrf_service_gone();
void vrf_service_back();
std::size_t vrf_registrations();

// --- Probes --------------------------------------------------------------------------------------

// The package's two libraries; both are installed after reset, and the service runs without
// operations. A library that is loaded stays loaded when it is removed.
void probe_package_installed();
void probe_package_removed();
void probe_library_missing(std::string_view name);

struct library_use {
  unsigned asked_for = 0;  // loads that were tried
  int held = 0;            // loads less unloads
};
library_use probe_library_use(std::string_view name);

// The service ends and leaves its table, which shows no operation then, and starts again with
// another one and the operations it had; the table itself goes, until the service starts again.
void probe_service_gone();
void probe_service_back();
void probe_table_gone();

// An operation runs and has this result: 0 none yet, 1 success, else a failure; milliseconds. It
// runs no more.
void probe_result(std::uint32_t op_id, std::uint32_t return_code, std::uint32_t response_time = 0);
void probe_stopped(std::uint32_t op_id);

// --- What the service said -----------------------------------------------------------------------

// System messages, "OT-SERVICES-6-TRACK_INFO: ...", and trace lines since the last take.
std::vector<std::string> take_messages();
// The fields of messages that have some, "NAME=value NAME=value"; before the messages are taken.
std::vector<std::string> take_message_fields();
// So many more lines of the log found no reader.
void messages_dropped(std::uint64_t count);
std::vector<std::string> take_traces();

// Calls `watch` with each trace line as it is made, in the thread that makes it, until the next
// reset: what else has happened by then is there to be seen.
void watch_traces(std::function<void(const std::string& line)> watch);

// How the service has introduced itself to the router's services since the last take (the first one
// only begins): operation, names, modes and numbers, "rtclient_init NAME MODE CHANNEL".
std::vector<std::string> take_introductions();

// How many events the publisher published, whether anyone wanted them or not. Subscribers come
// through platform/event_subscriber.h.
std::uint64_t events_published();

}  // namespace field
}  // namespace ot
