// Numbers that nobody guesses, by which a probe knows its answers.
#pragma once

#include <sys/random.h>
#include <sys/types.h>

namespace ot::qmond {

// Fills *ret with random bytes. Never waits: so early in a boot that the kernel has none yet, *ret
// stays as it is.
template <typename Number>
void fill_by_chance(Number* ret) {
  [[maybe_unused]] const ssize_t filled = getrandom(ret, sizeof *ret, GRND_NONBLOCK);
}

}  // namespace ot::qmond
