// Lines that their reader did not take (lines.h) are offered again by the daemon's loop. A reader
// may be behind, and a terminal takes nothing for as long as somebody else is writing to it.
#pragma once

#include "tools/daemon/loop.h"

namespace ot {

// In force as long as it lives; the loop's thread.
class line_offers {
 public:
  // Throws std::system_error when the kernel refuses.
  explicit line_offers(sd_event* loop);
  ~line_offers() = default;
  line_offers(const line_offers&) = delete;
  line_offers& operator=(const line_offers&) = delete;

 private:
  void offer();

  sd_event* loop_;
  loop_source kept_;
  loop_source again_;
};

}  // namespace ot
