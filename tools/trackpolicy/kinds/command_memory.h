// What a policy's command has been told last, and which command of it runs, as a later trackpolicy
// has to know it.
#pragma once

#include <vector>

#include "tools/trackpolicy/reaction.h"

namespace ot::trackpolicy {

struct command_memory {
  track_state told = track_state::unknown;
  bool begun = false;  // a command began after that, and its end is not known
};

void remember_command(host& on, const policy& of, const command_memory& what);
// What still runs of the command is ended. What cannot be read, or is of another track, counts as
// nothing.
command_memory recall_command(host& on, const policy& of);
// The same for what is remembered of no policy among these any more; it is forgotten.
void forget_others(host& on, const std::vector<policy>& policies);

}  // namespace ot::trackpolicy
