// What the process can ask of the framework that runs it.
#pragma once

namespace ot {

struct evm;

// Ends the process at once with `status`, after queued system messages have left. The in-memory
// platform throws `process_exited` in its place.
[[noreturn]] void process_exit(int status);

// Runs the manager's handlers until ready() holds, two seconds at most. On the manager's thread,
// outside its handlers.
void process_wait(evm* manager, bool (*ready)()) noexcept;

// The calling thread's name, as process listings show it: at most 15 characters; an empty one takes
// the process's name back.
void thread_name_set(const char* name) noexcept;

// True when the ledger client library stands in its place, "/pkg/lib/libledger.so" below the
// package root, and can be read.
bool ledger_library_readable() noexcept;

}  // namespace ot
