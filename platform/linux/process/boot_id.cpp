// The boot id tells what was kept in this boot from what an earlier one left behind.
#include "platform/linux/process/boot_id.h"

#include <fstream>

namespace ot {

std::string read_boot_id() {
  std::ifstream file{"/proc/sys/kernel/random/boot_id"};
  std::string id;
  std::getline(file, id);
  return id;
}

}  // namespace ot
