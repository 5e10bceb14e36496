// The calling thread's name, as process listings show it.
#pragma once

namespace ot {

// At most 15 characters; an empty name takes the process's name back.
void thread_name_set(const char* name) noexcept;

}  // namespace ot
