// A configuration file that says what is run, so that nobody but root and the user that runs it may
// have written it.
#pragma once

#include <string>

namespace ot::settings {

// What is wrong with the file, as a text for behind "FILE: "; empty when `ret`, which comes empty,
// holds what is in it.
std::string read_protected_file(const std::string& path, std::string* ret);

}  // namespace ot::settings
