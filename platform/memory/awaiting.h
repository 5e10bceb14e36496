// How a test waits for another thread without sleeping. For the files of this folder.
#pragma once

namespace ot {

// Something that a test may be waiting for has happened in this thread.
void note_change() noexcept;

}  // namespace ot
