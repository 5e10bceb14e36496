// The names of the interface manager's line states, for traces. Also asked for the service's own
// marks for "not reported yet", which are no line states.
#include <iterator>

#include "platform/interface_manager.h"

namespace ot {
namespace {

constexpr const char* state_names[] = {"IFM_STATE_UNKNOWN", "IFM_STATE_ADMIN_DOWN",
                                       "IFM_STATE_DOWN", "IFM_STATE_UP"};
static_assert(std::size(state_names) == ifm_state_up + 1);

}  // namespace

const char* ifm_state_name(std::uint32_t state) noexcept {
  return state_names[state < std::size(state_names) ? state : ifm_state_unknown];
}

}  // namespace ot
