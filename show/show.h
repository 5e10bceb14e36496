// The operator's "show track" command: reads the operational records of the running service and
// prints them to standard output. It ends quietly whatever fails; failures are traced.
#pragma once

#include "platform/ledger.h"

namespace ot {

// Serves `<program> show track [<name> [all]]`; does nothing for other words. Returns 0.
int ot_show(int argc, char** argv);

// The same once argv[2] is known; argv has five elements at least, null where none was given. No
// name means all tracks. The fifth word "all" chooses the detailed view.
void ot_show_track(const char* const* argv);

// The detailed view of one track or of all of them, and the table view of one key ("all-tracks" for
// all).
void ot_show_track_info(const char* name);
void ot_show_all_tracks_info();
void ot_show_track_info_brief(const char* key);

// Reads the item `path` below `base`, both cut to 127 characters. The ledger's result; `ret` is
// written on success.
int ot_ledger_read_oper(const char* base, const char* path, ledger_value* ret) noexcept;

}  // namespace ot
