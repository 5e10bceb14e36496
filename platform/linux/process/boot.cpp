// The start count, one line "BOOT-ID COUNT" in the run directory. The boot id stands in it because
// a run directory below another root may outlive a boot.
#include "platform/linux/process/boot.h"

#include <fstream>
#include <sstream>
#include <string>

#include "platform/common/root_path.h"
#include "platform/linux/process/directories.h"

namespace ot {
namespace {

constexpr std::size_t longest_file = 256;

// The count kept for `boot`; 0 when there is none or it belongs to another boot.
std::uint32_t kept_count(const std::string& path, const std::string& boot) {
  std::string content;
  std::string error;
  if (read_own_file(path, longest_file, content, error) != 0) {
    return 0;
  }
  std::istringstream words(content);
  std::string kept_boot;
  std::uint32_t count = 0;
  return words >> kept_boot >> count && kept_boot == boot ? count : 0;
}

}  // namespace

std::string read_boot_id() {
  std::ifstream file{"/proc/sys/kernel/random/boot_id"};
  std::string id;
  std::getline(file, id);
  return id;
}

int start_count_next(std::uint32_t* ret, std::string& ret_error) {
  if (const int error = make_directory(root_path(run_directory), 0750, ret_error); error != 0) {
    return error;
  }
  const std::string path = root_path(std::string(run_directory) + "/start_count");
  const std::string boot = read_boot_id();
  const std::uint32_t count = kept_count(path, boot) + 1;
  const std::string line = boot + ' ' + std::to_string(count) + '\n';
  const int error = replace_own_file(path, line, 0600, false, ret_error);
  if (error == 0) {
    *ret = count;
  }
  return error;
}

}  // namespace ot
