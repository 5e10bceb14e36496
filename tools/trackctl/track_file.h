// A configuration file: a track a line, in the words of `set`, with comments, blank lines and
// includes. It is read whole; every line that is wrong is told with its place.
#pragma once

#include <string>
#include <vector>

#include "tools/trackctl/track_line.h"

namespace ot::trackctl {

struct file_track {
  said_track said;
  std::string place;  // "tracks.conf:12"
};

struct file_content {
  std::vector<file_track> tracks;   // in the order of their lines
  std::vector<std::string> errors;  // each with its place
};

// Reads the file at `path`, "-" for standard input, and what it includes. Never throws for what is
// in them: that is in the errors.
file_content read_track_file(const std::string& path);

// The same of a text; `name` stands in the places. Includes are relative to the working directory.
file_content read_track_text(const std::string& text, const std::string& name);

}  // namespace ot::trackctl
