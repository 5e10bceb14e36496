// The functions that stand in the platform's place. Each has two names that the linker gives a
// wrapped function: the one it is called by, and the one of the platform's own.
#include "tests/unit/odd_answers.h"

#include <cstring>
#include <utility>

#include "platform/memory/alloc_faults.h"
#include "platform/status.h"
#include "platform/trace.h"
#include "platform/vrf_service.h"

#define WRAPPED(mangled) asm("__wrap_" mangled)
#define PLATFORMS(mangled) asm("__real_" mangled)

#define DBG_INIT_EVENT "_ZN2ot14dbg_init_eventEPNS_8dbg_flagEjjPKcj"
#define LEAF_GET_TYPE "_ZN2ot23wtm_timer_leaf_get_typeEPKNS_8wtm_leafE"
#define GET_REPLY "_ZN2ot20vmap_c_lrc_get_replyEPKNS_17vmap_lookup_replyE"
#define GET_REPLY_ITEM "_ZN2ot29vmap_c_lrc_get_reply_item_vrfEPKNS_10vmap_replyEj"

namespace ot::test {
namespace {

odd_answers ordered;
std::vector<std::string> flags_initialised;

}  // namespace

with_odd_answers::with_odd_answers(const odd_answers& answers) noexcept {
  ordered = answers;
}
with_odd_answers::~with_odd_answers() {
  ordered = {};
}

std::vector<std::string> take_flags_initialised() {
  return std::exchange(flags_initialised, {});
}

int platforms_dbg_init_event(dbg_flag*, std::uint32_t, std::uint32_t, const char*,
                             std::uint32_t) noexcept PLATFORMS(DBG_INIT_EVENT);
int wrapped_dbg_init_event(dbg_flag*, std::uint32_t, std::uint32_t, const char*,
                           std::uint32_t) noexcept WRAPPED(DBG_INIT_EVENT);
int wrapped_dbg_init_event(dbg_flag* block, std::uint32_t index, std::uint32_t level,
                           const char* name, std::uint32_t persistent) noexcept {
  if (ordered.note_flags) {
    const alloc_faults_paused pause;
    flags_initialised.push_back(std::to_string(level) + " " + name + " " +
                                std::to_string(persistent));
  }
  const bool fails =
      ordered.failing_flag != nullptr && std::strcmp(name, ordered.failing_flag) == 0;
  return fails ? invalid_argument : platforms_dbg_init_event(block, index, level, name, persistent);
}

std::uint16_t platforms_leaf_get_type(const wtm_leaf*) noexcept PLATFORMS(LEAF_GET_TYPE);
std::uint16_t wrapped_leaf_get_type(const wtm_leaf*) noexcept WRAPPED(LEAF_GET_TYPE);
std::uint16_t wrapped_leaf_get_type(const wtm_leaf* leaf) noexcept {
  return leaf == ordered.disguised ? ordered.disguise : platforms_leaf_get_type(leaf);
}

const vmap_reply* platforms_get_reply(const vmap_lookup_reply*) noexcept PLATFORMS(GET_REPLY);
const vmap_reply* wrapped_get_reply(const vmap_lookup_reply*) noexcept WRAPPED(GET_REPLY);
const vmap_reply* wrapped_get_reply(const vmap_lookup_reply* reply) noexcept {
  return ordered.no_reply ? nullptr : platforms_get_reply(reply);
}

const vmap_vrf* platforms_get_item(const vmap_reply*, std::uint32_t) noexcept
    PLATFORMS(GET_REPLY_ITEM);
const vmap_vrf* wrapped_get_item(const vmap_reply*, std::uint32_t) noexcept WRAPPED(GET_REPLY_ITEM);
const vmap_vrf* wrapped_get_item(const vmap_reply* reply, std::uint32_t index) noexcept {
  return ordered.no_item ? nullptr : platforms_get_item(reply, index);
}

}  // namespace ot::test
