// The start count, one line "BOOT-ID COUNT" in the run directory. The boot id stands in it because
// a run directory below another root may outlive a boot.
#include "platform/linux/process/boot.h"

#include <cerrno>
#include <fstream>
#include <new>
#include <string>

#include "platform/common/root_path.h"
#include "platform/linux/process/directories.h"
#include "platform/status.h"

namespace ot {
namespace {

// The count kept for `boot`; 0 when there is none or it belongs to another boot.
std::uint32_t kept_count(const std::string& path, const std::string& boot) {
  std::ifstream file(path);
  std::string kept_boot;
  std::uint32_t count = 0;
  return file >> kept_boot >> count && kept_boot == boot ? count : 0;
}

// Replaces the file as a whole, so that a crash in between leaves the old count.
int keep_count(const std::string& path, const std::string& boot, std::uint32_t count) {
  const std::string fresh = path + ".new";
  std::ofstream file(fresh, std::ios::trunc);
  file << boot << ' ' << count << '\n';
  file.close();
  if (!file) {
    return EIO;
  }
  return std::rename(fresh.c_str(), path.c_str()) == 0 ? status_ok : errno;
}

}  // namespace

std::string read_boot_id() {
  std::ifstream file{"/proc/sys/kernel/random/boot_id"};
  std::string id;
  std::getline(file, id);
  return id;
}

int start_count_next(std::uint32_t* ret) noexcept {
  try {
    if (const int status = make_directory(root_path(run_directory), 0750); status != status_ok) {
      return status;
    }
    const std::string path = root_path(std::string(run_directory) + "/start_count");
    const std::string boot = read_boot_id();
    const std::uint32_t count = kept_count(path, boot) + 1;
    const int status = keep_count(path, boot, count);
    if (status == status_ok) {
      *ret = count;
    }
    return status;
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
}

}  // namespace ot
