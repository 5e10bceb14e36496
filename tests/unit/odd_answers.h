// Answers that no platform gives, for texts that the service has for them all the same. The test
// programs are linked with the functions of odd_answers.cpp in the place of the platform's, which
// pass every call on that nothing was ordered for.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/timer_tree.h"

namespace ot::test {

struct odd_answers {
  bool note_flags = false;              // the calls of dbg_init_event are written down
  const char* failing_flag = nullptr;   // dbg_init_event fails with 22 for this name
  const wtm_leaf* disguised = nullptr;  // wtm_timer_leaf_get_type says `disguise` for this leaf
  std::uint16_t disguise = 0;
  bool no_reply = false;  // vmap_c_lrc_get_reply gives none
  bool no_item = false;   // vmap_c_lrc_get_reply_item_vrf gives none
};

// Orders these answers for its scope.
class with_odd_answers {
 public:
  explicit with_odd_answers(const odd_answers& answers) noexcept;
  ~with_odd_answers();
  with_odd_answers(const with_odd_answers&) = delete;
  with_odd_answers& operator=(const with_odd_answers&) = delete;
};

// What was written down since the last take: "<level> <name> <persistent>".
std::vector<std::string> take_flags_initialised();

}  // namespace ot::test
