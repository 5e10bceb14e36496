// The front-end entry: the executable called with arguments. It serves "show ..." and ends the
// process with 1 when the trace flags cannot be set up.

#include "platform/service.h"

#include <cstdio>
#include <cstring>

#include "core/debug.h"
#include "platform/process.h"
#include "show/show.h"

namespace ot {

int main(int argc, char** argv) {
  if (ot_debug_init(nullptr) != 0) {
    std::fputs("failed to setup init debug info!", stderr);
    process_exit(1);
  }
  if (argc > 1 && std::strcmp(argv[1], "show") == 0) {
    ot_show(argc, argv);
  }
  return 0;
}

}  // namespace ot
