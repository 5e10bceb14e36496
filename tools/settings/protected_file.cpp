// Opens what may as well be a device or a pipe, looks at it, and reads it to a bound.
#include "tools/settings/protected_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "platform/linux/unique_fd.h"

namespace ot::settings {
namespace {

// Several times what 65,536 operations take.
constexpr std::size_t size_max = std::size_t{64} << 20;

std::string error_text(int error) {
  return std::generic_category().message(error);
}

// Who else may write to the file, as a text; empty when nobody may. What is read from a device is
// nobody's.
std::string writers_text(const struct stat& file) {
  if (S_ISCHR(file.st_mode)) {
    return {};
  }
  const uid_t own = geteuid();
  if (file.st_uid != 0 && file.st_uid != own) {
    return "it belongs to user " + std::to_string(file.st_uid) + "; it must belong to user 0" +
           (own == 0 ? "" : " or " + std::to_string(own));
  }
  if ((file.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    return "others may write to it; only its owner may (chmod go-w)";
  }
  return {};
}

}  // namespace

std::string read_protected_file(const std::string& path, std::string* ret) {
  const unique_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
  struct stat status {};
  if (!file.valid() || fstat(file.get(), &status) != 0) {
    return error_text(errno);
  }
  if (std::string others = writers_text(status); !others.empty()) {
    return others;
  }
  std::array<char, 65536> part;
  ssize_t size = 0;
  while ((size = read(file.get(), part.data(), part.size())) > 0) {
    ret->append(part.data(), static_cast<std::size_t>(size));
    if (ret->size() > size_max) {
      return "it is larger than 64 MiB";
    }
  }
  return size < 0 ? error_text(errno) : std::string();
}

}  // namespace ot::settings
