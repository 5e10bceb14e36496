// Making and checking directories and files. The service may run as root or as a user of its own,
// and its directories may have been made for it. What stands above OT_ROOT is its user's own
// business. The group is a help for operators, not a need.
#include "platform/linux/process/directories.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/common/root_path.h"
#include "platform/linux/file_stream.h"

namespace ot {
namespace {

std::string directory_of(const std::string& path) {
  const std::size_t end = path.rfind('/');
  return end == std::string::npos ? "." : path.substr(0, end + 1);
}

// What speaks against using it, "" for nothing. A sticky directory may be everybody's.
std::string fault_of(const struct stat& state, mode_t type) {
  if ((state.st_mode & S_IFMT) != type) {
    return std::string(S_ISLNK(state.st_mode) ? "it is a symbolic link" : "it is") +
           (S_ISLNK(state.st_mode) ? ""
            : type == S_IFDIR      ? " no directory"
                                   : " no regular file");
  }
  if (state.st_uid != 0 && state.st_uid != geteuid()) {
    return "it belongs to user " + std::to_string(state.st_uid) + "; it must belong to user " +
           std::to_string(geteuid()) + ", as whom the service runs, or to root";
  }
  const bool sticky = type == S_IFDIR && (state.st_mode & S_ISVTX) != 0;
  if ((state.st_mode & (S_IWGRP | S_IWOTH)) != 0 && !sticky) {
    return "others may write to it; take that right away (chmod go-w)";
  }
  return {};
}

int refuse(const std::string& path, const std::string& fault, std::string& ret_error) {
  ret_error = path + ": " + fault;
  return EPERM;
}

int failed(const std::string& path, int error, std::string& ret_error) {
  ret_error = place_error(path, error);
  return error;
}

int check_directory(const std::string& path, bool follow, std::string& ret_error) {
  struct stat state {};
  if (fstatat(AT_FDCWD, path.c_str(), &state, follow ? 0 : AT_SYMLINK_NOFOLLOW) != 0) {
    return failed(path, errno, ret_error);
  }
  const std::string fault = fault_of(state, S_IFDIR);
  return fault.empty() ? 0 : refuse(path, fault, ret_error);
}

// The directories above; those that are new are open to those who pass through.
int make_parents(const std::string& path, std::string& ret_error) {
  const std::size_t root = root_path("").size();
  for (std::size_t end = path.find('/', 1); end != std::string::npos;
       end = path.find('/', end + 1)) {
    const std::string above = path.substr(0, end);
    if (mkdir(above.c_str(), 0755) == 0) {
      chmod(above.c_str(), 0755);
    } else if (errno != EEXIST) {
      return failed(above, errno, ret_error);
    }
    const int error = end > root ? check_directory(above, true, ret_error) : 0;
    if (error != 0) {
      return error;
    }
  }
  return 0;
}

int write_whole(int file, std::string_view content) noexcept {
  while (!content.empty()) {
    const ssize_t count = ::write(file, content.data(), content.size());
    if (count < 0 && errno != EINTR) {
      return errno;
    }
    content.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
  }
  return 0;
}

}  // namespace

// The package's group stands in /etc/group; what looks into other places (LDAP, systemd) costs a
// process half a megabyte of libraries for as long as it lives.
gid_t service_group() noexcept {
  constexpr const char* name = "object_tracking";
  const file_stream groups{std::fopen("/etc/group", "re")};
  if (groups != nullptr) {
    while (const group* entry = fgetgrent(groups.get())) {
      if (std::strcmp(entry->gr_name, name) == 0) {
        return entry->gr_gid;
      }
    }
  }
  const group* entry = getgrnam(name);
  return entry == nullptr ? static_cast<gid_t>(-1) : entry->gr_gid;
}

int share_with_group(const std::string& path, mode_t mode) noexcept {
  if (chmod(path.c_str(), mode) != 0) {
    return errno;
  }
  const gid_t members = service_group();
  const bool shared = members == static_cast<gid_t>(-1) ||
                      lchown(path.c_str(), static_cast<uid_t>(-1), members) == 0 ||
                      errno == EPERM;  // a user outside the group keeps its own
  return shared ? 0 : errno;
}

std::string place_error(const std::string& path, int error) {
  std::string text = path + ": " + strerrordesc_np(error);
  struct statvfs disk {};
  if (error == ENOSPC && statvfs(directory_of(path).c_str(), &disk) == 0 && disk.f_files > 0 &&
      disk.f_favail == 0) {
    text += " (the file system has no inodes left)";
  }
  return text;
}

int make_directory(const std::string& path, mode_t mode, std::string& ret_error) {
  if (const int error = make_parents(path, ret_error); error != 0) {
    return error;
  }
  if (mkdir(path.c_str(), mode) == 0) {
    const int error = share_with_group(path, mode);
    return error == 0 ? 0 : failed(path, error, ret_error);
  }
  return errno == EEXIST ? check_directory(path, false, ret_error) : failed(path, errno, ret_error);
}

// O_NONBLOCK: a pipe in the file's place must not hold the service up.
unique_fd open_own_file(const std::string& path, int flags, mode_t mode, std::string& ret_error) {
  constexpr int always = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  unique_fd file{::open(path.c_str(), flags | always, mode)};
  if (!file.valid() && errno == ELOOP) {
    errno = refuse(path, "it is a symbolic link", ret_error);
    return {};
  }
  struct stat state {};
  if (!file.valid() || fstat(file.get(), &state) != 0) {
    errno = failed(path, errno, ret_error);
    return {};
  }
  if (const std::string fault = fault_of(state, S_IFREG); !fault.empty()) {
    errno = refuse(path, fault, ret_error);
    return {};
  }
  if ((flags & O_CREAT) != 0 && (state.st_mode & 07777) != mode) {
    fchmod(file.get(), mode);
  }
  return file;
}

int read_own_file(const std::string& path, std::size_t limit, std::string& ret,
                  std::string& ret_error) {
  const unique_fd file = open_own_file(path, O_RDONLY, 0, ret_error);
  if (!file.valid()) {
    return errno;
  }
  struct stat state {};
  if (fstat(file.get(), &state) != 0) {
    return failed(path, errno, ret_error);
  }
  // Room for one byte more shows the end, and a file that grows meanwhile.
  const std::size_t room = std::min(limit, static_cast<std::size_t>(state.st_size)) + 1;
  std::string content(room, '\0');
  std::size_t have = 0;
  for (ssize_t count = 1; count != 0 && have < room;) {
    count = ::read(file.get(), content.data() + have, room - have);
    if (count < 0 && errno != EINTR) {
      return failed(path, errno, ret_error);
    }
    have += count < 0 ? 0 : static_cast<std::size_t>(count);
  }
  if (have == room) {
    return failed(path, EFBIG, ret_error);
  }
  content.resize(have);
  ret = std::move(content);
  return 0;
}

int replace_own_file(const std::string& path, std::string_view content, mode_t mode, bool durable,
                     std::string& ret_error) {
  struct stat present {};
  if (lstat(path.c_str(), &present) == 0 && !S_ISREG(present.st_mode) &&
      !S_ISLNK(present.st_mode)) {
    return refuse(path, "it is no regular file, and is not replaced by one", ret_error);
  }
  const std::string fresh = path + ".new";
  unlink(fresh.c_str());  // of a process that was killed
  unique_fd file = open_own_file(fresh, O_WRONLY | O_CREAT | O_EXCL, mode, ret_error);
  if (!file.valid()) {
    return errno;
  }
  int error = write_whole(file.get(), content);
  if (error == 0 && durable && fsync(file.get()) != 0) {
    error = errno;
  }
  if (error == 0 && std::rename(fresh.c_str(), path.c_str()) != 0) {
    error = errno;
  }
  if (error != 0) {
    unlink(fresh.c_str());
    return failed(path, error, ret_error);
  }
  return durable ? sync_directory_of(path) : 0;
}

int sync_directory_of(const std::string& path) noexcept {
  const unique_fd directory{::open(directory_of(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  return directory.valid() && fsync(directory.get()) == 0 ? 0 : errno;
}

}  // namespace ot
