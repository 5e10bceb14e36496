// The log: what the process has to say, on its way to the journal, else the system log, and to
// standard error where somebody reads it. Lines are collected without allocation and written by the
// loop's flush, behind the events of the handler that said them; before a loop is attached, from
// other threads, and when the room is used up, a line is written through at once. The order of the
// calls is kept throughout. Any thread.
//
// Nothing here waits for a reader. What a sink does not take stays in the queue; when the room is
// used up, what such a sink has not got is dropped, and the first line that it takes again says how
// many it has missed. Only the process's end gives a slow reader a little time.
#pragma once

#include "platform/evm.h"

namespace ot {

// Makes the calling thread's loop the one whose flush writes the lines. 0 or 12.
int log_queue_attach(evm* manager) noexcept;
// From here on lines are written through again; writes what is queued, as log_queue_finish does.
void log_queue_detach() noexcept;
// Writes what the sinks take.
void log_queue_flush() noexcept;
// Writes everything that is queued; gives a reader that goes on reading two seconds at most, one
// that does not 200 ms.
void log_queue_finish() noexcept;

}  // namespace ot
