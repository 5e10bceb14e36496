// Making the tracks what a file or a text says: read, compared, checked and committed in one go.
#pragma once

#include <string>
#include <vector>

#include "tools/trackctl/file_changes.h"
#include "tools/trackctl/track_file.h"

namespace ot::trackctl {

struct apply_options {
  std::string what;  // what is tried, for errors: "applying tracks.conf"
  bool prune = false;
  bool dry_run = false;
};

struct applied_tracks {
  file_changes plan;
  std::vector<std::string> warnings;  // what the tracks may not mean
};

// All of it or nothing. When somebody else changes the configuration meanwhile, it is compared
// anew. Throws.
applied_tracks apply_tracks(const std::vector<file_track>& wanted, const apply_options& options);

}  // namespace ot::trackctl
