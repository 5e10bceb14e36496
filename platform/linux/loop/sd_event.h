// The event loop of this platform: the manager's sd-event loop, for those who attach sources to it.
//
// The event manager (platform/event_manager.h) is a thin layer on sd-event, one loop a thread:
// evm_block prepares and waits, evm_dispatch runs the one handler that is due. Everything in the
// service happens inside such a handler, so nothing in one may block.
//
// From another thread there is one way in: a locked queue with an eventfd that counts it (queue.h).
// evm_post appends a task, evm_raise the entry of an asynchronous event; one entry leaves the queue
// for each dispatch, so a flood of posts does not starve the other sources. All else, attaching
// sources above all, belongs to the loop's own thread.
//
// What a handler leaves to be done in one go (events to send, ledger items to store, lines to log)
// it leaves to the flush hooks, which run before the next handler. Events leave first, whatever a
// store or a log does: somebody waits for them.
//
// Of several sources that wait, the interfaces' own comes first (netlink/watch.h): what a change of
// a link means to tracks has left before anything else that the same change woke up. All others
// take turns, and nothing that any of them does waits for a lock of the kernel's.
//
// Time: timer trees have one source each on CLOCK_BOOTTIME (time.cpp), so that a delay counts while
// the machine is suspended; retries and limits use CLOCK_MONOTONIC. The loop owns the manager's
// sources; whoever attaches one of his own ends it before its descriptor closes.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>

#include "platform/evm.h"

namespace ot {

// The manager's loop, for attaching sources. Borrowed. A source's handler counts as the one handler
// of an evm_dispatch.
sd_event* evm_sd_event(evm* manager) noexcept;

// In which order what a handler left to be done leaves.
enum class evm_flush_stage { events, stores, log };

// Has `flush(argument)` called at the start of every evm_block, stage after stage; within a stage
// in the order of registration. 0 or 12.
int evm_add_flush(evm* manager, evm_flush_stage stage, void (*flush)(void* argument),
                  void* argument) noexcept;

// (Re)starts a one-shot timer, made at its first use, that expires `usec` from now on `clock`. The
// caller unrefs it. 0 or sd-event's negative errno value.
int evm_start_timer(evm* manager, sd_event_source** timer, clockid_t clock, std::uint64_t usec,
                    sd_event_time_handler_t handler, void* context) noexcept;

// For the handler of a timer on CLOCK_MONOTONIC: whether the loop comes to it so late that what it
// limits was overlooked, because the machine or the process stood still or something kept the loop
// busy. What came meanwhile may not have been read; whoever has waited for the loop is to have its
// time anew.
bool evm_overlooked(sd_event_source* timer) noexcept;

// For a source's handler whose whole work is to raise `event`: runs the event's handler at once in
// its place, which spares a turn of the loop, unless tasks wait that came before it.
void evm_run_or_raise(const evm_sigevent& event);

// Calls the flush hooks now, for a loop that will not wait again.
void evm_flush(evm* manager) noexcept;

// The service is ready: handlers that ran at its start, and all that the start did behind them, are
// no turns of the loop.
void evm_restart_turns(evm* manager) noexcept;

}  // namespace ot
