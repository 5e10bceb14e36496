// From the configuration that is there to the one that a file wants: what differs, in words, and
// the one commit that makes it so. Pure.
#pragma once

#include <string>
#include <vector>

#include "tools/trackctl/configuration.h"
#include "tools/trackctl/track_file.h"

namespace ot::trackctl {

struct file_changes {
  // "+ NAME ...", "- NAME ...", "~ NAME what it is -> what it will be, ...".
  std::vector<std::string> lines;
  commit changes;  // empty when nothing differs
  std::size_t made = 0;
  std::size_t changed = 0;
  std::size_t deleted = 0;
};

// What differs. `prune`: tracks that the file does not name go.
file_changes plan_file(const configured_tracks& present, const std::vector<file_track>& wanted,
                       bool prune);

// The configuration afterwards.
configured_tracks configuration_after(const configured_tracks& present,
                                      const std::vector<file_track>& wanted, bool prune);

// What a configuration of that file would be refused for, or does not mean: two tracks on one
// object, a list that names itself, more tracks than there can be.
std::vector<std::string> find_conflicts(const configured_tracks& after,
                                        const std::vector<file_track>& wanted);

// What it may not mean: members that are no track, lists that contain each other, and what the
// lines have notes of.
std::vector<std::string> find_warnings(const configured_tracks& after,
                                       const std::vector<file_track>& wanted);

}  // namespace ot::trackctl
