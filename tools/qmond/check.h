// `qmond --check FILE`.
#pragma once

#include <string>

namespace ot::qmond {

// Prints every error of the file with its place on standard error, or that there is none. Returns
// the exit status.
int check_file(const std::string& path);

}  // namespace ot::qmond
