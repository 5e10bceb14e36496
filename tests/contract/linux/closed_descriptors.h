// Uses of a descriptor's number after its end: by then the number may be another thread's
// descriptor, and the kernel does not say so.
#pragma once

namespace ot::test {

// How often this process handed an event loop a descriptor that was not open any more.
// Under the thread sanitizer, which finds such uses itself, always 0.
int watches_on_closed_descriptors() noexcept;

}  // namespace ot::test
