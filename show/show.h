// The show front-end.
#pragma once

namespace ot {

// Serves "show track ..."; always 0.
int ot_show(int argc, char** argv);

}  // namespace ot
