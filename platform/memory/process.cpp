// The end of the process as a test sees it: an exception.
#include "platform/process.h"

#include "platform/memory/controls.h"

namespace ot {

void process_exit(int status) {
  throw process_exited{status};
}

}  // namespace ot
