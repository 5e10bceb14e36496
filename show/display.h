// Printing operational records to standard output.
#pragma once

#include "oper/records/track_records.h"

namespace ot {

// One block of lines for each record of the chain.
void ot_display_track_info(const track_info__* records);

// A table with one line for each record of the chain; its heading also without any.
void ot_display_track_info_brief(const track_info_brief__* records);

}  // namespace ot
