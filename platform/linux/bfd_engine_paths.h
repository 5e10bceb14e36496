// Where the BFD engine's control socket is looked for.
#pragma once

#include <string>
#include <vector>

namespace ot {

// In the order in which they are to be tried. OT_BFDD_SOCKET, taken as it is, stands for all.
// Throws bad_alloc.
std::vector<std::string> bfd_engine_paths();

}  // namespace ot
