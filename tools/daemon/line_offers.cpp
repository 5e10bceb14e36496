#include "tools/daemon/line_offers.h"

#include <sys/epoll.h>

#include <cerrno>
#include <system_error>

#include "platform/linux/monotonic.h"
#include "tools/daemon/lines.h"

namespace ot {
namespace {

constexpr std::uint64_t offer_again_us = 100'000;
constexpr std::uint64_t accuracy_us = 10'000;

}  // namespace

line_offers::line_offers(sd_event* loop) : loop_(loop) {
  if (kept_lines_fd() < 0) {
    throw std::system_error(EMFILE, std::generic_category(), "eventfd");
  }
  kept_ =
      loop_source::descriptor(loop, kept_lines_fd(), EPOLLIN, [this](std::uint32_t) { offer(); });
}

void line_offers::offer() {
  if (!offer_lines()) {
    again_ = loop_source::timer(loop_, monotonic_us() + offer_again_us, accuracy_us,
                                [this](std::uint32_t) { offer(); });
  }
}

}  // namespace ot
