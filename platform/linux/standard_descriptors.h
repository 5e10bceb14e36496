// A program may be started without its standard descriptors. What it opens would take their numbers
// then, and what it prints would be sent to a socket of its own.
#pragma once

#include <fcntl.h>

namespace ot {

// Takes the numbers of those that are closed, so that reading and writing them fails. Before
// anything else is opened.
inline void reserve_standard_descriptors() noexcept {
  for (const int number : {0, 1, 2}) {
    if (fcntl(number, F_GETFD) < 0) {
      // The lowest number that is free is this one.
      (void)open("/dev/null", number == 0 ? O_WRONLY : O_RDONLY);
    }
  }
}

}  // namespace ot
