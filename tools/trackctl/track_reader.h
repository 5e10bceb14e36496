// Reads the tracks' detailed operational records, and what stands about them elsewhere in the
// ledger.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "tools/trackctl/track_json.h"

namespace ot::trackctl {

// The record lives only during the call.
using track_visitor = std::function<void(const track_info__& record)>;

// One track; false when the service has none of that name. Throws.
bool read_track_record(const std::string& track, const track_visitor& visit);

// Every track, in the service's order, read in pages. Throws.
void read_track_records(const track_visitor& visit);

// What the records do not carry, of every track by its name. Throws.
std::map<std::string, track_extras, std::less<>> read_track_extras();

}  // namespace ot::trackctl
