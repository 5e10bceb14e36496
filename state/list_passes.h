// One calculation of all lists, as the rules (list_evaluation.cpp) see it. Main thread.
#pragma once

#include <cstdint>

#include "core/track.h"

namespace ot {

// The track that a member names, or null.
ot_track* track_of_member(const list_member& member) noexcept;

// The member with which judging a list begins: the first, or the one that it has waited for. What
// was judged before it stands in the list's progress, which starts from zero otherwise.
list_member* first_member_to_judge(ot_track& list) noexcept;

// The list has to wait: `other`, the track of `member`, is not computed yet.
void wait_for_member(ot_track& list, list_member& member, ot_track& other) noexcept;

}  // namespace ot
